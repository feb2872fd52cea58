#pragma once

#include "WsparoCompanion/Language.h"

/// Everything that the companion says to people, but for the help (HelpTexts) and what the helpdesk
/// and the agent say in their own words. "{}" are filled in by filled().
namespace orv::companion::texts {

// The command line
inline constexpr Bilingual seeHelp{"Pomoc: wsparo --help", "For help: wsparo --help"};
inline constexpr Bilingual noCommand{"Nie podano polecenia.", "There is no command."};
inline constexpr Bilingual unknownCommand{"Nieznane polecenie: {}.", "Unknown command: {}."};
inline constexpr Bilingual incompleteCommand{"Niepełne lub nieznane polecenie: {}.",
                                             "Incomplete or unknown command: {}."};
inline constexpr Bilingual unknownOption{"To polecenie nie zna opcji {}.",
                                         "This command has no option {}."};
inline constexpr Bilingual optionNeedsValue{"Opcja {} wymaga wartości.",
                                            "The option {} needs a value."};
inline constexpr Bilingual optionTakesNoValue{"Opcja {} nie przyjmuje wartości.",
                                              "The option {} takes no value."};
inline constexpr Bilingual optionGivenTwice{"Opcję {} podano więcej niż raz.",
                                            "The option {} was given more than once."};
inline constexpr Bilingual tooManyWords{
    "Nie wiadomo, co zrobić z: {}. Tekst ze spacjami ujmij w cudzysłów.",
    "It is not clear what to do with: {}. Put a text with blanks into quotes."};
inline constexpr Bilingual missingText{"Brakuje tekstu.", "The text is missing."};
inline constexpr Bilingual notANumber{
    "Opcja {} przyjmuje liczbę od 1 do {}, a podano: {}.",
    "The option {} takes a number from 1 to {}, but was given: {}."};
inline constexpr Bilingual noPasswordHere{
    "Hasła nie podaje się w wierszu poleceń ({}): widzieliby je inni. Program o nie zapyta albo "
    "przeczyta je ze standardowego wejścia.",
    "The password is not given on the command line ({}), where others would see it. It is asked "
    "for, or read from the standard input."};
inline constexpr Bilingual missingOption{"Brakuje opcji {}.", "The option {} is missing."};
inline constexpr Bilingual unexpected{"Nieoczekiwany błąd: {}", "Unexpected error: {}"};
inline constexpr Bilingual invalidUtf8{"Tekst nie jest zapisany w UTF-8.",
                                       "The text is not written in UTF-8."};

// Times
inline constexpr Bilingual timeAgo{"{} temu", "{} ago"};
inline constexpr Bilingual justNow{"przed chwilą", "just now"};
inline constexpr Bilingual timeAhead{"{} (data w przyszłości)", "{} (in the future)"};
inline constexpr Bilingual never{"jeszcze nigdy", "never yet"};

// Files
inline constexpr Bilingual settingsMissing{
    "Nie znaleziono ustawień ({}). Zainstaluj program Wsparo Brenvox albo zapisz jego Ustawienia.",
    "There are no settings ({}). Install Wsparo Brenvox, or save its settings."};
inline constexpr Bilingual settingsForbidden{
    "Brak prawa do odczytu ustawień ({}). Poproś administratora o prawo odczytu tego pliku albo "
    "uruchom polecenie przez sudo.",
    "There is no permission to read the settings ({}). Ask an administrator for the right to read "
    "this file, or use sudo."};
inline constexpr Bilingual settingsBroken{
    "Ustawienia są nieprawidłowe ({}): {} Otwórz Ustawienia programu i zapisz je ponownie.",
    "The settings are not valid ({}): {} Open the program's settings and save them again."};
inline constexpr Bilingual stateMissing{
    "To urządzenie nie jest jeszcze zarejestrowane w Centrum Wsparo. Sprawdź, czy agent działa: "
    "wsparo doctor",
    "This device is not registered with the helpdesk yet. Find out whether the agent works: wsparo "
    "doctor"};
inline constexpr Bilingual stateForbidden{
    "Brak prawa do odczytu stanu agenta ({}). Poproś administratora o prawo odczytu tego pliku "
    "albo uruchom polecenie przez sudo.",
    "There is no permission to read the agent's state ({}). Ask an administrator for the right to "
    "read this file, or use sudo."};
inline constexpr Bilingual stateBroken{
    "Plik stanu agenta jest uszkodzony ({}). Agent zapisze go od nowa przy najbliższym audycie.",
    "The agent's state file is damaged ({}). The agent writes it anew with its next inventory."};
inline constexpr Bilingual cannotUse{"Nie można użyć pliku {}: {}.",
                                     "The file {} cannot be used: {}."};

// Status
inline constexpr Bilingual labelRegistration{"Rejestracja", "Registration"};
inline constexpr Bilingual labelSupportId{"Identyfikator wsparcia", "Support id"};
inline constexpr Bilingual labelHostname{"Nazwa komputera", "Computer name"};
inline constexpr Bilingual labelServer{"Serwer", "Server"};
inline constexpr Bilingual labelInventory{"Ostatni audyt", "Last inventory"};
inline constexpr Bilingual labelHeartbeat{"Ostatni kontakt", "Last heartbeat"};
inline constexpr Bilingual labelConnection{"Połączenie", "Connection"};
inline constexpr Bilingual labelUpdate{"Aktualizacja", "Update"};
inline constexpr Bilingual registered{"urządzenie zarejestrowane", "device registered"};
inline constexpr Bilingual notRegistered{"urządzenie niezarejestrowane", "device not registered"};
inline constexpr Bilingual unknown{"nieznane", "unknown"};
inline constexpr Bilingual noProblem{"bez problemów", "no problem"};
inline constexpr Bilingual withTime{"{} ({})", "{} ({})"};
inline constexpr Bilingual unreadableSettingsShort{"nieznany (ustawienia: brak prawa do odczytu)",
                                                   "unknown (no permission to read the settings)"};
inline constexpr Bilingual missingSettingsShort{"nieznany (brak ustawień)",
                                                "unknown (no settings)"};
inline constexpr Bilingual brokenSettingsShort{"nieznany (nieprawidłowe ustawienia)",
                                               "unknown (the settings are not valid)"};

// Updates
inline constexpr Bilingual updateNone{"nie było jeszcze żadnej", "there was none yet"};
inline constexpr Bilingual updateBroken{
    "Plik stanu aktualizacji jest nieczytelny ({}). Zastąpi go następne sprawdzenie: wsparo update "
    "check",
    "The update's status file cannot be read ({}). The next check replaces it: wsparo update "
    "check"};
inline constexpr Bilingual updateRequested{"Poproszono agenta o sprawdzenie aktualizacji.",
                                           "The agent was asked to look for an update."};
inline constexpr Bilingual updateNotTaken{
    "Agent nie odebrał prośby w ciągu {} s. Sprawdź, czy działa: wsparo doctor",
    "The agent did not take the request within {} s. Find out whether it works: wsparo doctor"};
inline constexpr Bilingual updateNoNews{
    "Agent odebrał prośbę, ale nie podał wyniku. Sprawdź później: wsparo update status",
    "The agent took the request but told no result. Look again later: wsparo update status"};
inline constexpr Bilingual updateGoesOn{
    "Przerwano czekanie. Agent kontynuuje; stan: wsparo update status",
    "No longer waiting. The agent goes on; its status: wsparo update status"};
inline constexpr Bilingual updateCannotAsk{"Nie można zostawić prośby o aktualizację ({}): {}.",
                                           "The request for an update cannot be left ({}): {}."};
inline constexpr Bilingual labelPhase{"Etap", "Phase"};
inline constexpr Bilingual labelMessage{"Komunikat", "Message"};
inline constexpr Bilingual labelCurrentVersion{"Wersja zainstalowana", "Installed version"};
inline constexpr Bilingual labelAvailableVersion{"Wersja dostępna", "Available version"};
inline constexpr Bilingual labelUpdatedAt{"Zapisano", "Written"};
inline constexpr Bilingual labelLog{"Dziennik", "Log"};
inline constexpr Bilingual phaseQueued{"w kolejce", "queued"};
inline constexpr Bilingual phaseChecking{"sprawdzanie", "checking"};
inline constexpr Bilingual phaseDownloading{"pobieranie", "downloading"};
inline constexpr Bilingual phaseInstalling{"instalacja", "installing"};
inline constexpr Bilingual phaseNoUpdate{"brak nowszej wersji", "nothing newer"};
inline constexpr Bilingual phaseInstalled{"zainstalowano", "installed"};
inline constexpr Bilingual phaseFailed{"nie powiodła się", "failed"};

// Chat
inline constexpr Bilingual chatEmpty{"Brak wiadomości.", "There are no messages."};
inline constexpr Bilingual chatQueued{"Wiadomość czeka na wysłanie przez agenta.",
                                      "The message waits for the agent to send it."};
inline constexpr Bilingual chatWaits{"czeka na wysłanie", "waits to be sent"};
inline constexpr Bilingual chatNoConversation{"Identyfikator rozmowy nie może być pusty.",
                                              "The conversation's id must not be empty."};
inline constexpr Bilingual chatEmptyText{"Wiadomość jest pusta.", "The message is empty."};
inline constexpr Bilingual chatTooLong{"Wiadomość jest za długa.", "The message is too long."};
inline constexpr Bilingual chatWatching{"Czekam na wiadomości. Koniec: Ctrl-C.",
                                        "Waiting for messages. Ctrl-C ends."};

// Login
inline constexpr Bilingual askEmail{"E-mail: ", "E-mail: "};
inline constexpr Bilingual askPassword{"Hasło: ", "Password: "};
inline constexpr Bilingual emptyPassword{"Nie podano hasła.", "There is no password."};
inline constexpr Bilingual wrongPassword{"Nieprawidłowy e-mail lub hasło.",
                                         "The e-mail address or the password is wrong."};
inline constexpr Bilingual loggedIn{"Zalogowano: {} ({}).", "Logged in: {} ({})."};
inline constexpr Bilingual loggedOut{"Wylogowano.", "Logged out."};
inline constexpr Bilingual notLoggedIn{"Nikt nie jest zalogowany. Zaloguj się: wsparo login",
                                       "Nobody is logged in. Log in: wsparo login"};
inline constexpr Bilingual sessionExpired{"Sesja wygasła. Zaloguj się ponownie: wsparo login",
                                          "The session has ended. Log in again: wsparo login"};
inline constexpr Bilingual sessionUnreadable{
    "Zapisana sesja jest nieczytelna ({}). Zaloguj się ponownie: wsparo login",
    "The stored session cannot be read ({}). Log in again: wsparo login"};
inline constexpr Bilingual noHome{"Nie wiadomo, gdzie jest folder domowy (HOME).",
                                  "It is not known where the home folder is (HOME)."};

// Tickets
inline constexpr Bilingual askSubject{"Temat: ", "Subject: "};
inline constexpr Bilingual askDescription{"Opis (koniec: wiersz z samą kropką):",
                                          "Description (a line with a single dot ends it):"};
inline constexpr Bilingual askName{"Imię i nazwisko", "Your name"};
inline constexpr Bilingual askCustomerEmail{"E-mail", "E-mail"};
inline constexpr Bilingual askPhone{"Telefon (można pominąć)", "Phone (may be left out)"};
inline constexpr Bilingual notAnEmail{"To nie jest adres e-mail: {}.",
                                      "This is no e-mail address: {}."};
inline constexpr Bilingual attachmentTooLarge{"Załącznik {} jest większy niż {} MB.",
                                              "The attachment {} is larger than {} MB."};
inline constexpr Bilingual ticketCreated{"Przyjęto zgłoszenie {}.", "The ticket {} was opened."};
inline constexpr Bilingual noNews{"Brak nowych wiadomości.", "There are no new messages."};
inline constexpr Bilingual ticketsWatching{"Czekam na odpowiedzi konsultantów. Koniec: Ctrl-C.",
                                           "Waiting for consultants' answers. Ctrl-C ends."};

// What could not be done: the middle of "Nie udało się ..., ponieważ ..."
inline constexpr Bilingual actionLogIn{"zalogować", "log in"};
inline constexpr Bilingual actionSendTicket{"wysłać zgłoszenia", "send the ticket"};
inline constexpr Bilingual actionFetchTickets{"pobrać wiadomości", "fetch the messages"};

}  // namespace orv::companion::texts
