#include "WsparoCompanion/HelpTexts.h"

namespace orv::companion {

namespace {

constexpr const char* polish = R"(Użycie: wsparo POLECENIE [OPCJE]

Wsparo Brenvox z wiersza poleceń: stan tego komputera, rozmowy, zgłoszenia, aktualizacje.

Polecenia
  status [--json]          czy urządzenie jest zarejestrowane i łączy się z Centrum Wsparo
  doctor                   sprawdza wszystko po kolei i mówi, co zrobić

  chat send --conversation ID [--sender NAZWA] TEKST
                           zostawia wiadomość, którą wyśle agent (TEKST „-”: ze standardowego
                           wejścia)
  chat list [--conversation ID] [--json]
                           wiadomości odebrane i czekające na wysłanie
  chat watch [--conversation ID] [--all] [--json]
                           pokazuje wiadomości, gdy nadchodzą (--all: najpierw te, które już są)

  update check [--wait S]  prosi agenta o sprawdzenie aktualizacji i pokazuje postęp
                           (--wait: ile sekund czekać, aż agent odbierze prośbę; zwykle 30)
  update status [--json]   stan ostatniej aktualizacji

  ticket new               nowe zgłoszenie; o to, czego brakuje, pyta na terminalu
      --subject TEMAT --description OPIS (OPIS „-”: ze standardowego wejścia)
      --name IMIĘ_I_NAZWISKO --email ADRES [--cc ADRES]... [--phone NUMER]
      [--priority PRIORYTET] [--type RODZAJ] [--attach PLIK]...
  login [--email ADRES]    loguje klienta; o hasło pyta bez pokazywania go albo czyta je ze
                           standardowego wejścia
  logout                   usuwa zapisaną sesję
  tickets [--all] [--json] nowe odpowiedzi konsultantów na zgłoszenia (--all: wszystkie)
  tickets --follow [--interval S] [--json]
                           pokazuje odpowiedzi, gdy nadchodzą; pyta co S sekund (zwykle 30)

  --help, --version

Z opcją --json „chat” i „tickets” piszą po jednym obiekcie JSON w wierszu.

Kody wyjścia
  0  w porządku
  1  nie udało się albo coś jest nie tak
  2  nieprawidłowy wiersz poleceń
  3  brak ustawień albo urządzenie niezarejestrowane
  4  brak prawa do pliku
  5  trzeba się zalogować
  6  nie można połączyć się z serwerem
  130  przerwano (Ctrl-C); „chat watch” i „tickets --follow” kończą się wtedy kodem 0

Język: LC_ALL, LC_MESSAGES, LANG. Kolory tylko na terminalu; wyłącza je NO_COLOR.
)";

constexpr const char* english = R"(Usage: wsparo COMMAND [OPTIONS]

Wsparo Brenvox on the command line: this computer's status, chats, tickets, updates.

Commands
  status [--json]          whether the device is registered and in touch with the helpdesk
  doctor                   checks everything in turn and says what to do

  chat send --conversation ID [--sender NAME] TEXT
                           leaves a message for the agent to send (TEXT "-": from the standard
                           input)
  chat list [--conversation ID] [--json]
                           messages that came in, and those that wait to be sent
  chat watch [--conversation ID] [--all] [--json]
                           shows messages as they come (--all: first those that are there)

  update check [--wait S]  asks the agent to look for an update and shows its progress
                           (--wait: for how many seconds the agent may not react; usually 30)
  update status [--json]   how the last update went

  ticket new               opens a ticket; asks on the terminal for what is missing
      --subject SUBJECT --description TEXT (TEXT "-": from the standard input)
      --name NAME --email ADDRESS [--cc ADDRESS]... [--phone NUMBER]
      [--priority PRIORITY] [--type TYPE] [--attach FILE]...
  login [--email ADDRESS]  logs a customer in; asks for the password without showing it, or reads
                           it from the standard input
  logout                   removes the stored session
  tickets [--all] [--json] consultants' new answers to tickets (--all: all of them)
  tickets --follow [--interval S] [--json]
                           shows answers as they come; asks every S seconds (usually 30)

  --help, --version

With --json, "chat" and "tickets" write one JSON object on each line.

Exit codes
  0  success
  1  it failed, or something is wrong
  2  the command line is not understood
  3  no settings, or the device is not registered
  4  no permission for a file
  5  a login is needed
  6  the server cannot be reached
  130  interrupted (Ctrl-C); "chat watch" and "tickets --follow" then end with 0

Language: LC_ALL, LC_MESSAGES, LANG. Colours on terminals only; NO_COLOR turns them off.
)";

}  // namespace

const char* helpText(Language language) {
    return language == Language::polish ? polish : english;
}

}  // namespace orv::companion
