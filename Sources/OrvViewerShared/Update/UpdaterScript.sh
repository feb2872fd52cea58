#!/bin/bash
set -e
@PLAN@

# Replaces one version of Wsparo Brenvox by another, and goes back when the new one does not run.
# launchd runs this apart from the daemon, which is what gets replaced; what is printed here goes to
# the update log. The lines above say which update it is.
#
# For bash 3.2 and the Mac's own tools. It may be killed between any two commands, so at any time
# either the installed version works or a whole backup of one that does is there. The functions come
# first: bash has read everything before anything happens, because the file removes itself.

BANNER=@BANNER@
CURRENT_APP="/Applications/Wsparo Brenvox.app"
INSTALL_DIR="/Library/Application Support/Wsparo Brenvox"
AGENT_PLIST="/Library/LaunchAgents/pl.brenvox.wsparo.menubar.plist"
DAEMON_PLIST="/Library/LaunchDaemons/pl.brenvox.wsparo.daemon.plist"
BACKUP_ROOT="$INSTALL_DIR/update-backups"
BACKUP_DIR="$BACKUP_ROOT/$BACKUP_VERSION-$(/bin/date -u +%Y%m%d%H%M%S)"
BACKUP_APP_ARCHIVE="$BACKUP_DIR/Wsparo-Brenvox-app.tar"

APP_EXECUTABLE="$CURRENT_APP/Contents/MacOS/Wsparo Brenvox"
DAEMON_EXECUTABLE="$INSTALL_DIR/WsparoAgent"
DAEMON_SERVICE="system/pl.brenvox.wsparo.daemon"
MENU_BAR_LABEL="pl.brenvox.wsparo.menubar"
LSREGISTER="/System/Library/Frameworks/CoreServices.framework/Frameworks/LaunchServices.framework/Support/lsregister"

# Set when the only good backup is the one that an earlier run left behind.
KEEPS_OLD_BACKUP=""

# For what may fail without harm, such as stopping what does not run.
quietly() {
  "$@" > /dev/null 2>&1 || true
}

utc_time() {
  /bin/date -u +%Y-%m-%dT%H:%M:%SZ
}

# ---- Status ----

status_json() { # phase, message as JSON
  printf '{\n  "phase": "%s",\n  "message": %s,\n' "$1" "$2"
  printf '  "currentVersion": %s,\n' "$CURRENT_VERSION_JSON"
  printf '  "availableVersion": %s,\n' "$AVAILABLE_VERSION_JSON"
  printf '  "updatedAt": "%s",\n' "$(utc_time)"
  printf '  "logPath": %s\n}\n' "$LOG_PATH_JSON"
}

# Never through what somebody else has put there, not even in the last moment.
create_exclusively() { # path; the content is standard input
  (set -o noclobber && /bin/cat > "$1")
}

# Every user may put things into the runtime folder. There, moving a file onto a folder, or onto a
# link to one, would move it inside: so the status file first is one of our own, which nobody else
# can take away.
replace_status() { # phase, message as JSON
  if [ -L "$RUNTIME_DIR" ]; then /bin/rm -f "$RUNTIME_DIR" || return 1; fi
  /bin/mkdir -p "$RUNTIME_DIR" || return 1
  /bin/chmod 1777 "$RUNTIME_DIR" || return 1
  /bin/rm -rf "$STATUS_PATH.tmp" || return 1
  status_json "$1" "$2" | create_exclusively "$STATUS_PATH.tmp" || return 1
  /bin/chmod 666 "$STATUS_PATH.tmp" || return 1
  if [ -L "$STATUS_PATH" ] || [ ! -f "$STATUS_PATH" ] || [ ! -O "$STATUS_PATH" ]; then
    /bin/rm -rf "$STATUS_PATH" || return 1
    create_exclusively "$STATUS_PATH" < /dev/null || return 1
  fi
  /bin/mv -f "$STATUS_PATH.tmp" "$STATUS_PATH"
}

# An update does not fail because it cannot be watched.
write_status() { # phase, message as JSON
  replace_status "$1" "$2" || echo "Update status could not be written."
}

# ---- Failure ----

failure_message() { # exit code
  case "$1" in
    6 | 7) echo '"Nie udało się pobrać aktualizacji, ponieważ nie można połączyć się z serwerem. Sprawdź Internet i spróbuj ponownie."' ;;
    22) echo '"Nie udało się pobrać aktualizacji: serwer nie udostępnił paczki (HTTP 4xx/5xx). Spróbuj ponownie później."' ;;
    28) echo '"Nie udało się pobrać aktualizacji, ponieważ przekroczono czas oczekiwania na serwer. Spróbuj ponownie."' ;;
    35 | 51 | 60) echo '"Nie udało się bezpiecznie pobrać aktualizacji. Połączenie HTTPS z serwerem nie zostało zweryfikowane."' ;;
    40) echo '"Aktualizacja nie została pobrana w całości. Spróbuj uruchomić aktualizację ponownie."' ;;
    41) echo '"Aktualizacja została przerwana: rozmiar pobranej paczki nie zgadza się z manifestem serwera."' ;;
    42) echo '"Aktualizacja została przerwana: kontrola SHA-256 pobranej paczki nie powiodła się."' ;;
    43) echo '"Aktualizacja została zainstalowana, ale nowa aplikacja nie przeszła kontroli uruchomienia. Przywrócono poprzednią wersję."' ;;
    *) printf '%s\n' "$FAILED_MESSAGE_JSON" ;;
  esac
}

# Before the last status, so that whoever starts the next update on seeing it keeps his files.
remove_job_files() {
  /bin/rm -f "$UPDATER_SCRIPT" "$UPDATER_PLIST"
}

go_back_and_exit() { # exit code
  trap - ERR
  set +e
  # It may be what has filled the disk, and the way back needs room.
  /bin/rm -rf "$PKG_PATH"
  if restore_previous_installation; then
    discard_backups
  else
    echo "The previous installation could not be restored. Its backup stays: $BACKUP_DIR"
  fi
  remove_job_files
  write_status "failed" "$(failure_message "$1")"
  exit "$1"
}

on_update_error() { # exit code
  # A subshell only ends; what that means is decided where its result arrives.
  if [ "$BASH_SUBSHELL" -ne 0 ]; then exit "$1"; fi
  echo "Update failed with exit code $1."
  go_back_and_exit "$1"
}

give_up() { # exit code, what is wrong
  echo "$2"
  on_update_error "$1"
}

# ---- launchd ----

# Only the service's own state counts: other lines end in the same words.
service_is_running() { # domain/label
  /bin/launchctl print "$1" 2> /dev/null | /usr/bin/grep -Eq '^[[:space:]]*state = running[[:space:]]*$'
}

# launchd refuses a job for as long as its predecessor is still ending.
bootstrap_job() { # domain, job file
  local attempt
  for attempt in 1 2 3 4 5; do
    if /bin/launchctl bootstrap "$1" "$2"; then return 0; fi
    if [ "$attempt" -lt 5 ]; then /bin/sleep 1; fi
  done
  return 1
}

load_daemon() {
  /bin/launchctl print "$DAEMON_SERVICE" > /dev/null 2>&1 || bootstrap_job system "$DAEMON_PLIST"
}

restart_daemon() {
  if /bin/launchctl kickstart -k "$DAEMON_SERVICE"; then return 0; fi
  load_daemon || return 1
  /bin/launchctl kickstart -k "$DAEMON_SERVICE"
}

# Twice in a row, because a program that crashes at once runs for a moment, too.
daemon_reaches_running_state() {
  local attempt
  for ((attempt = 0; attempt < 15; attempt++)); do
    if service_is_running "$DAEMON_SERVICE"; then
      /bin/sleep 3
      if service_is_running "$DAEMON_SERVICE"; then return 0; fi
    fi
    quietly /bin/launchctl kickstart -kp "$DAEMON_SERVICE"
    /bin/sleep 1
  done
  return 1
}

# Sets CONSOLE_USER and CONSOLE_UID; false when nobody is logged in.
find_console_user() {
  CONSOLE_USER="$(/usr/bin/stat -f %Su /dev/console 2> /dev/null)" || return 1
  case "$CONSOLE_USER" in
    "" | root | loginwindow) return 1 ;;
  esac
  CONSOLE_UID="$(/usr/bin/id -u "$CONSOLE_USER" 2> /dev/null)" || return 1
  [ -n "$CONSOLE_UID" ] && [ "$CONSOLE_UID" != 0 ]
}

stop_menu_bar_job() { # job file, label
  find_console_user || return 0
  quietly /bin/launchctl bootout "gui/$CONSOLE_UID" "$1"
  quietly /bin/launchctl bootout "gui/$CONSOLE_UID/$2"
}

start_menu_bar() {
  find_console_user || return 0
  quietly /bin/launchctl bootout "gui/$CONSOLE_UID" "$AGENT_PLIST"
  if [ -f "$AGENT_PLIST" ]; then quietly bootstrap_job "gui/$CONSOLE_UID" "$AGENT_PLIST"; fi
  quietly /bin/launchctl enable "gui/$CONSOLE_UID/$MENU_BAR_LABEL"
  quietly /bin/launchctl kickstart -kp "gui/$CONSOLE_UID/$MENU_BAR_LABEL"
  /bin/sleep 1
  if ! service_is_running "gui/$CONSOLE_UID/$MENU_BAR_LABEL"; then
    quietly /bin/launchctl asuser "$CONSOLE_UID" /usr/bin/sudo -u "$CONSOLE_USER" \
      /usr/bin/open -gj "$CURRENT_APP" --args --menubar
  fi
}

kill_menu_processes() {
  quietly /usr/bin/pkill -f "$APP_EXECUTABLE"
  quietly /usr/bin/pkill -f "/Applications/Orv-Viewer[^/]*/Contents/MacOS/"
  quietly /usr/bin/pkill -f "/Applications/Centrum Wsparo Brenvox[^/]*/Contents/MacOS/"
}

# ---- Backup ----

# Put aside first: what is left of a removal that was cut short must not be taken for a backup.
discard_backups() {
  local discarded="$UPDATE_DIR/discarded-backups"
  /bin/rm -rf "$discarded"
  if [ -e "$BACKUP_ROOT" ]; then quietly /bin/mv "$BACKUP_ROOT" "$discarded"; fi
  /bin/rm -rf "$discarded" "$BACKUP_ROOT"
}

# Made under another name and then renamed: a backup is whole or not there.
backup_current_installation() {
  local new="$BACKUP_DIR.partial" plist
  if [ -n "$KEEPS_OLD_BACKUP" ]; then return 0; fi
  discard_backups
  /bin/mkdir -p "$new"
  /bin/chmod 700 "$BACKUP_ROOT"
  if [ -d "$CURRENT_APP" ]; then
    /usr/bin/tar -cpf "$new/Wsparo-Brenvox-app.tar" -C /Applications "Wsparo Brenvox.app"
    /usr/bin/touch "$new/had-app"
  fi
  if [ -f "$DAEMON_EXECUTABLE" ] && [ -x "$DAEMON_EXECUTABLE" ]; then
    /bin/cp -p "$DAEMON_EXECUTABLE" "$new/"
    /usr/bin/touch "$new/had-agent"
  fi
  for plist in "$DAEMON_PLIST" "$AGENT_PLIST"; do
    if [ -f "$plist" ]; then /bin/cp -p "$plist" "$new/"; fi
  done
  /bin/mv "$new" "$BACKUP_DIR"
  echo "Backup prepared: $BACKUP_DIR"
}

# A program that is running keeps its old file, and nobody ever finds half a one.
restore_file() { # name in the backup, target, mode
  local new="$2.restored"
  if [ ! -f "$BACKUP_DIR/$1" ]; then return 0; fi
  /bin/rm -rf "$new"
  /bin/cp -p "$BACKUP_DIR/$1" "$new" && /usr/sbin/chown root:wheel "$new" &&
    /bin/chmod "$3" "$new" && /bin/mv -f "$new" "$2"
}

restore_app() {
  if [ ! -f "$BACKUP_APP_ARCHIVE" ]; then return 0; fi
  /bin/rm -rf "$CURRENT_APP"
  /usr/bin/tar -xpf "$BACKUP_APP_ARCHIVE" -C /Applications || return 1
  /bin/chmod -R go+rX "$CURRENT_APP"
}

# Goes on after a failure: a daemon without its application is better than neither.
restore_previous_installation() {
  local result=0
  if [ ! -d "$BACKUP_DIR" ]; then
    echo "No previous installation backup to restore."
    return 0
  fi
  echo "Restoring previous Wsparo Brenvox installation from $BACKUP_DIR"
  quietly /usr/bin/touch "$BACKUP_DIR/unfinished"
  kill_menu_processes
  quietly /bin/launchctl bootout "$DAEMON_SERVICE"
  stop_menu_bar_job "$AGENT_PLIST" "$MENU_BAR_LABEL"
  if ! restore_app; then
    echo "Could not restore the previous app bundle."
    result=1
  fi
  restore_file "WsparoAgent" "$DAEMON_EXECUTABLE" 755 || result=1
  restore_file "${DAEMON_PLIST##*/}" "$DAEMON_PLIST" 644 || result=1
  restore_file "${AGENT_PLIST##*/}" "$AGENT_PLIST" 644 || result=1
  if [ -f "$DAEMON_PLIST" ]; then
    if ! load_previous_daemon; then
      echo "Could not load the previous daemon."
      result=1
    fi
    quietly /bin/launchctl kickstart -kp "$DAEMON_SERVICE"
  fi
  start_menu_bar
  if [ -f "$BACKUP_DIR/had-app" ] && [ ! -x "$APP_EXECUTABLE" ]; then
    echo "Previous app bundle was not restored."
    result=1
  fi
  if [ -f "$BACKUP_DIR/had-agent" ] && [ ! -x "$DAEMON_EXECUTABLE" ]; then
    echo "Previous daemon was not restored."
    result=1
  fi
  return "$result"
}

# The job that was booted out may still be ending, and then still be described.
load_previous_daemon() {
  bootstrap_job system "$DAEMON_PLIST" || service_is_running "$DAEMON_SERVICE"
}

# ---- An earlier run that was killed ----

# Sets LEFT_BACKUP to the newest whole backup; false when there is none.
find_left_backup() {
  local folder
  LEFT_BACKUP=""
  for folder in "$BACKUP_ROOT"/*; do
    if [ ! -d "$folder" ] || [ "${folder%.partial}" != "$folder" ]; then continue; fi
    if [ -z "$LEFT_BACKUP" ] || [ "$folder" -nt "$LEFT_BACKUP" ]; then LEFT_BACKUP="$folder"; fi
  done
  [ -n "$LEFT_BACKUP" ]
}

# Files that were being put in place or back are not trusted. Others have to show that they work:
# nobody may have asked them since they were put there. Only what the backup could bring back is asked.
installation_works() {
  if [ -f "$LEFT_BACKUP/unfinished" ]; then return 1; fi
  if [ -f "$LEFT_BACKUP/had-app" ] && [ -z "$(printed_version "$APP_EXECUTABLE")" ]; then return 1; fi
  if [ -f "$LEFT_BACKUP/had-agent" ] && [ -z "$(printed_version "$DAEMON_EXECUTABLE")" ]; then return 1; fi
  if [ ! -f "$LEFT_BACKUP/${DAEMON_PLIST##*/}" ]; then return 0; fi
  restart_daemon && daemon_reaches_running_state
}

# An installer outlives the run that started it, and would write over what is restored here.
wait_for_left_installer() {
  local turns
  for ((turns = 0; turns < 300; turns++)); do
    /usr/bin/pgrep -f "/usr/sbin/installer -pkg $UPDATE_DIR/" > /dev/null || return 0
    /bin/sleep 1
  done
}

# A backup that is still there belongs to a run that did not come to its end.
recover_interrupted_installation() {
  local own_backup="$BACKUP_DIR"
  find_left_backup || return 0
  wait_for_left_installer
  if installation_works; then
    discard_backups
    return 0
  fi
  echo "An earlier update was interrupted."
  BACKUP_DIR="$LEFT_BACKUP"
  BACKUP_APP_ARCHIVE="$BACKUP_DIR/Wsparo-Brenvox-app.tar"
  if restore_previous_installation; then
    discard_backups
    BACKUP_DIR="$own_backup"
    BACKUP_APP_ARCHIVE="$BACKUP_DIR/Wsparo-Brenvox-app.tar"
  else
    echo "The interrupted update could not be undone. Its backup stays: $BACKUP_DIR"
    KEEPS_OLD_BACKUP=1
  fi
}

# ---- Package ----

download_package() {
  /bin/rm -rf "$PKG_PATH"
  /usr/bin/curl --proto '=https' --tlsv1.2 -fL --retry 3 --connect-timeout 20 --max-time 900 \
    -o "$PKG_PATH" "$PKG_URL"
}

package_identity() {
  /usr/bin/stat -f '%i %z %m' "$PKG_PATH" 2> /dev/null || true
}

verify_package() {
  if [ ! -f "$PKG_PATH" ]; then give_up 40 "Downloaded package is missing."; fi
  PACKAGE_IDENTITY="$(package_identity)"
  ACTUAL_SIZE="$(/usr/bin/stat -f %z "$PKG_PATH")"
  if [ "$ACTUAL_SIZE" != "$EXPECTED_SIZE" ]; then
    give_up 41 "Package size mismatch: expected $EXPECTED_SIZE got $ACTUAL_SIZE"
  fi
  ACTUAL_SHA="$(/usr/bin/shasum -a 256 "$PKG_PATH" | /usr/bin/awk '{print $1}')"
  if [ "$ACTUAL_SHA" != "$EXPECTED_SHA" ]; then
    give_up 42 "SHA-256 mismatch: expected $EXPECTED_SHA got $ACTUAL_SHA"
  fi
}

# The backup takes its time, and what is installed must be what was verified.
install_package() {
  if [ "$(package_identity)" != "$PACKAGE_IDENTITY" ]; then verify_package; fi
  /usr/bin/touch "$BACKUP_DIR/unfinished"
  /usr/sbin/installer -pkg "$PKG_PATH" -target /
  /bin/rm -f "$BACKUP_DIR/unfinished"
}

# ---- Predecessors ----

remove_obsolete_app_bundles() {
  local folder name
  for folder in /Applications /Users/*/Applications; do
    # A link would lead root to whatever folder its user likes.
    if [ ! -d "$folder" ] || [ -L "$folder" ]; then continue; fi
    for name in "Wsparo Brenvox.localized" "Wsparbox.app" "Orv-Viewer.app" "Centrum Wsparo Brenvox.app"; do
      quietly /bin/rm -rf "$folder/$name"
    done
  done
}

cleanup_legacy_installation() {
  local daemon="pl.dalvenor.orvdesk.viewer.daemon" menu_bar="pl.dalvenor.orvdesk.viewer.menubar"
  quietly /bin/launchctl bootout "system/$daemon"
  quietly /bin/rm -f "/Library/LaunchDaemons/$daemon.plist"
  stop_menu_bar_job "/Library/LaunchAgents/$menu_bar.plist" "$menu_bar"
  quietly /bin/rm -f "/Library/LaunchAgents/$menu_bar.plist"
  quietly /bin/rm -rf "/Library/Application Support/Orv-Desk Viewer"
  remove_obsolete_app_bundles
  quietly /usr/sbin/pkgutil --forget pl.dalvenor.orvdesk.viewer
}

# ---- The new version ----

# What a program says to --version; nothing when it is missing or takes longer than 20 s.
printed_version() { # executable
  local answer="$UPDATE_DIR/version-answer" program turns
  if [ ! -f "$1" ] || [ ! -x "$1" ]; then return 0; fi
  "$1" --version < /dev/null > "$answer" 2> /dev/null &
  program=$!
  for ((turns = 0; turns < 200; turns++)); do
    if ! kill -0 "$program" 2> /dev/null; then break; fi
    /bin/sleep 0.1
  done
  if [ "$turns" -eq 200 ]; then quietly kill -9 "$program"; fi
  quietly wait "$program"
  /usr/bin/head -c 1000 "$answer"
  quietly /bin/rm -f "$answer"
}

has_executable() { # path, what it is
  if [ -f "$1" ] && [ -x "$1" ]; then return 0; fi
  echo "New $2 executable is missing."
  return 1
}

has_offered_version() { # what is asked, its answer
  if [ "$2" = "$AVAILABLE_VERSION_RAW" ]; then return 0; fi
  echo "Installed $1 version mismatch: expected $AVAILABLE_VERSION_RAW got ${2:-empty}"
  return 1
}

bundle_version() {
  /usr/libexec/PlistBuddy -c "Print :CFBundleShortVersionString" \
    "$CURRENT_APP/Contents/Info.plist" 2> /dev/null || true
}

verify_new_installation() {
  has_executable "$APP_EXECUTABLE" "app" || return 1
  has_executable "$DAEMON_EXECUTABLE" "daemon" || return 1
  has_offered_version "app" "$(bundle_version)" || return 1
  has_offered_version "app binary" "$(printed_version "$APP_EXECUTABLE")" || return 1
  has_offered_version "daemon binary" "$(printed_version "$DAEMON_EXECUTABLE")" || return 1
  if daemon_reaches_running_state; then return 0; fi
  echo "New daemon did not reach running state."
  return 1
}

start_new_version() {
  kill_menu_processes
  if [ -x "$LSREGISTER" ]; then quietly "$LSREGISTER" -f "$CURRENT_APP"; fi
  restart_daemon
  start_menu_bar
}

finish() {
  discard_backups
  /bin/rm -f "$UPDATE_DIR"/Wsparo-Brenvox-macOS-*.pkg
  remove_obsolete_app_bundles
  remove_job_files
  write_status "installed" "$INSTALLED_MESSAGE_JSON"
  echo "Update completed."
  exit 0
}

main() {
  # Elsewhere this is another machine's: the paths here mean this one's own installation.
  if [ "$0" != "$UPDATER_SCRIPT" ]; then
    echo "This runs from $UPDATER_SCRIPT only."
    exit 64
  fi
  echo "==== $(utc_time) $BANNER ===="
  # The message for a failed update sends people there.
  quietly /bin/chmod 644 "$LOG_PATH"
  /bin/mkdir -p "$UPDATE_DIR"
  write_status "downloading" "$DOWNLOADING_MESSAGE_JSON"
  recover_interrupted_installation
  download_package
  verify_package
  backup_current_installation
  write_status "installing" "$INSTALLING_MESSAGE_JSON"
  install_package
  cleanup_legacy_installation
  start_new_version
  if ! verify_new_installation; then
    echo "New installation healthcheck failed."
    go_back_and_exit 43
  fi
  finish
}

umask 022
set -E
trap 'on_update_error "$?"' ERR
main
