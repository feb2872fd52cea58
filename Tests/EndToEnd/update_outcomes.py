"""How updates end: what the user is told, and what a script that failed leaves."""

from __future__ import annotations

from update_mac import JOB, NEW, OLD, SCRIPT, UpdateMac

NO_CONNECTION = ("Nie udało się pobrać aktualizacji, ponieważ nie można połączyć się z serwerem. "
                 "Sprawdź Internet i spróbuj ponownie.")
NOT_SERVED = ("Nie udało się pobrać aktualizacji: serwer nie udostępnił paczki (HTTP 4xx/5xx). "
              "Spróbuj ponownie później.")
TOO_SLOW = ("Nie udało się pobrać aktualizacji, ponieważ przekroczono czas oczekiwania na serwer. "
            "Spróbuj ponownie.")
NOT_TRUSTED = ("Nie udało się bezpiecznie pobrać aktualizacji. Połączenie HTTPS z serwerem nie "
               "zostało zweryfikowane.")
NOT_WHOLE = ("Aktualizacja nie została pobrana w całości. Spróbuj uruchomić aktualizację "
             "ponownie.")
WRONG_SIZE = ("Aktualizacja została przerwana: rozmiar pobranej paczki nie zgadza się z "
              "manifestem serwera.")
WRONG_HASH = ("Aktualizacja została przerwana: kontrola SHA-256 pobranej paczki nie powiodła się.")
NOT_HEALTHY = ("Aktualizacja została zainstalowana, ale nowa aplikacja nie przeszła kontroli "
               "uruchomienia. Przywrócono poprzednią wersję.")
FAILED = "Aktualizacja nie powiodła się. Szczegóły są w logu aktualizacji."


def expect_failure(mac: UpdateMac, code: int, message: str, *lines: str, **variables: str) -> str:
    done = mac.run_script(**variables)
    assert done.returncode == code, done.stdout
    status = mac.status()
    assert (status["phase"], status["message"]) == ("failed", message), done.stdout
    assert (status["currentVersion"], status["availableVersion"]) == (OLD, NEW)
    for line in lines:
        assert f"{line}\n" in done.stdout, done.stdout
    assert not mac.place(SCRIPT).exists() and not mac.place(JOB).exists()
    return done.stdout
