#pragma once

#include "WsparoCompanion/Language.h"

/// What "wsparo doctor" says.
namespace orv::companion::doctorTexts {

inline constexpr Bilingual ok{"ok  ", "ok  "};
inline constexpr Bilingual wrong{"ŹLE ", "BAD "};
inline constexpr Bilingual skipped{"-   ", "-   "};
inline constexpr Bilingual allWell{"Wszystko w porządku.", "All is well."};
inline constexpr Bilingual skippedWhy{"{}: pominięto, bo coś wcześniej jest nie tak",
                                      "{}: skipped, for something before it is wrong"};

inline constexpr Bilingual settingsGood{"Ustawienia: {} ({})", "Settings: {} ({})"};
inline constexpr Bilingual settingsTokenMissing{"Ustawienia: brak tokenu Wsparo ({})",
                                                "Settings: there is no Wsparo token ({})"};
inline constexpr Bilingual settingsTokenAdvice{
    "Otwórz Ustawienia programu, wpisz token i zapisz zmiany.",
    "Open the program's settings, enter the token and save it."};
inline constexpr Bilingual settingsBad{"Ustawienia", "Settings"};

inline constexpr Bilingual registered{"Rejestracja: identyfikator wsparcia {}, ostatni kontakt {}",
                                      "Registration: support id {}, last heartbeat {}"};
inline constexpr Bilingual heartbeatOld{"Rejestracja: ostatni kontakt agenta {}",
                                        "Registration: the agent's last heartbeat was {}"};
inline constexpr Bilingual heartbeatAdvice{
    "Sprawdź, czy agent działa; w razie potrzeby uruchom komputer ponownie.",
    "Find out whether the agent works; restart the computer if need be."};
inline constexpr Bilingual registrationBad{"Rejestracja", "Registration"};

inline constexpr Bilingual nameGood{"Nazwa serwera: {} ma adres {}",
                                    "Server name: {} has the address {}"};
inline constexpr Bilingual nameByProxy{"Nazwa serwera: {} przez proxy {}:{}",
                                       "Server name: {} through the proxy {}:{}"};
inline constexpr Bilingual nameBad{"Nazwa serwera: {} ({})", "Server name: {} ({})"};
inline constexpr Bilingual nameAdvice{
    "Sprawdź połączenie z siecią i adres serwera w Ustawieniach.",
    "Check the network connection and the server's address in the settings."};

inline constexpr Bilingual tls{"TLS", "TLS"};
inline constexpr Bilingual tlsGood{"TLS: certyfikat serwera {} jest zaufany",
                                   "TLS: the certificate of the server {} is trusted"};
inline constexpr Bilingual tlsBad{"TLS: serwer {}: {}", "TLS: server {}: {}"};
inline constexpr Bilingual tlsAdvice{
    "Sprawdź datę komputera i adres serwera; poproś administratora o sprawdzenie certyfikatu. "
    "Niczego nie wysyłano.",
    "Check the computer's date and the server's address; ask an administrator to look at the "
    "certificate. Nothing was sent."};

inline constexpr Bilingual https{"HTTPS", "HTTPS"};
inline constexpr Bilingual httpsGood{"HTTPS: serwer odpowiedział (HTTP {}, {} ms)",
                                     "HTTPS: the server answered (HTTP {}, {} ms)"};
inline constexpr Bilingual httpsBad{"HTTPS: {}", "HTTPS: {}"};
inline constexpr Bilingual httpsAdvice{
    "Sprawdź sieć, zaporę i to, czy serwer działa.",
    "Check the network, the firewall, and whether the server works."};
inline constexpr Bilingual httpsServerTrouble{"HTTPS: serwer ma chwilowy problem (HTTP {})",
                                              "HTTPS: the server has a problem (HTTP {})"};
inline constexpr Bilingual httpsServerAdvice{"Spróbuj ponownie za kilka minut.",
                                             "Try again in a few minutes."};

inline constexpr Bilingual credentials{"Poświadczenia", "Credentials"};
inline constexpr Bilingual credentialsGood{"Poświadczenia: serwer je przyjął ({})",
                                           "Credentials: the server accepts them ({})"};
inline constexpr Bilingual deviceToken{"token urządzenia", "device token"};
inline constexpr Bilingual organizationToken{"token organizacji", "organisation's token"};
inline constexpr Bilingual credentialsBad{"Poświadczenia: serwer je odrzucił (HTTP {})",
                                          "Credentials: the server refuses them (HTTP {})"};
inline constexpr Bilingual credentialsAdvice{
    "Otwórz Ustawienia i sprawdź token Wsparo albo skontaktuj się z konsultantem Brenvox.",
    "Open the settings and check the Wsparo token, or ask a Brenvox consultant."};

inline constexpr Bilingual clock{"Zegar", "Clock"};
inline constexpr Bilingual clockGood{"Zegar: różnica z serwerem {} s",
                                     "Clock: {} s from the server's"};
inline constexpr Bilingual clockBad{"Zegar: różnica z serwerem {} s",
                                    "Clock: {} s from the server's"};
inline constexpr Bilingual clockAdvice{
    "Włącz automatyczne ustawianie daty i godziny w Ustawieniach systemowych.",
    "Turn on setting date and time automatically in the system's settings."};
inline constexpr Bilingual clockUnknown{"Zegar: serwer nie podał czasu",
                                        "Clock: the server told no time"};

inline constexpr Bilingual control{"Kanał sterowania", "Control connection"};
inline constexpr Bilingual controlGood{"Kanał sterowania: otwarty i przyjęty",
                                       "Control connection: opened and accepted"};
inline constexpr Bilingual controlOpened{
    "Kanał sterowania: otwarty (urządzenie jeszcze się nie przedstawia)",
    "Control connection: opened (the device cannot introduce itself yet)"};
inline constexpr Bilingual controlBad{"Kanał sterowania: {}", "Control connection: {}"};
inline constexpr Bilingual controlRejected{
    "Kanał sterowania: serwer odrzucił te poświadczenia (HTTP {})",
    "Control connection: the server refuses these credentials (HTTP {})"};
inline constexpr Bilingual controlSilent{"Kanał sterowania: serwer nie odpowiedział na powitanie",
                                         "Control connection: the server did not answer"};
inline constexpr Bilingual controlAdvice{
    "Sprawdź token Wsparo oraz to, czy zapora i proxy przepuszczają WebSocket.",
    "Check the Wsparo token, and whether firewall and proxy let WebSockets through."};

inline constexpr Bilingual folderGood{"Folder {}: prawa {}", "Folder {}: mode {}"};
inline constexpr Bilingual folderLater{"Folder {}: powstanie, gdy będzie potrzebny",
                                       "Folder {}: is made when it is needed"};
inline constexpr Bilingual folderMissing{"Folder {}: nie istnieje", "Folder {}: does not exist"};
inline constexpr Bilingual folderNotOne{"Folder {}: to nie jest folder",
                                        "Folder {}: this is no folder"};
inline constexpr Bilingual folderForbidden{"Folder {}: nie można sprawdzić",
                                           "Folder {}: cannot be looked at"};
inline constexpr Bilingual folderMode{"Folder {}: prawa {} zamiast {}",
                                      "Folder {}: mode {} instead of {}"};
inline constexpr Bilingual folderModeAdvice{"sudo chmod {} \"{}\"", "sudo chmod {} \"{}\""};
inline constexpr Bilingual folderInstallAdvice{"Zainstaluj program Wsparo Brenvox ponownie.",
                                               "Install Wsparo Brenvox again."};
inline constexpr Bilingual folderRemoveAdvice{"Usuń to, co stoi w tym miejscu: {}",
                                              "Remove what stands at this place: {}"};

inline constexpr Bilingual logGood{"Dziennik: {}", "Log: {}"};
inline constexpr Bilingual logMissing{"Dziennik: agent jeszcze nic nie zapisał ({})",
                                      "Log: the agent has written nothing yet ({})"};
inline constexpr Bilingual logNotWritable{"Dziennik: agent nie może zapisywać w {}",
                                          "Log: the agent cannot write to {}"};
inline constexpr Bilingual logAdvice{
    "Sprawdź, czy agent działa, oraz prawa folderu: sudo ls -ld "
    "\"{}\"",
    "Find out whether the agent works, and the folder's mode: sudo "
    "ls -ld \"{}\""};

inline constexpr Bilingual sessionMode{"Sesja klienta: inni mogą ją odczytać ({})",
                                       "Customer's session: others can read it ({})"};
inline constexpr Bilingual sessionAdvice{"chmod 600 \"{}\"", "chmod 600 \"{}\""};

// Why a certificate or a connection was not accepted, as the agent's log calls it
inline constexpr Bilingual certificateReasons[] = {
    {"certyfikat wygasł", "The certificate has expired"},
    {"certyfikat nie jest jeszcze ważny", "The certificate is not valid yet"},
    {"certyfikat został odwołany", "The certificate has been revoked"},
    {"certyfikat jest dla innego serwera", "The certificate is for another host"},
    {"certyfikat wystawił urząd, który nie jest zaufany",
     "The certificate was issued by an authority that is not trusted"},
};

}  // namespace orv::companion::doctorTexts
