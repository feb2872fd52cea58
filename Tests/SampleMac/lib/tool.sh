# Sourced by every tool of the sample Mac, which has set `root` to the folder that stands for "/"
# (empty when the sample Mac has been entered). Records the call, applies the fault that a test has
# asked for, and offers the few things that the tools share.

sample=$root/.sample
real=$sample/real
tool=${0##*/}
answers=$sample/answers/$tool

# One write, so that tools running side by side never mix their lines: every argument ends with a
# unit separator, and a lone line feed ends the record.
printf '%s\037' "$tool" "$@" '
' >> "$sample/calls.log"

if [ -e "$sample/faults/$tool" ]; then
    # shellcheck source=/dev/null
    . "$sample/faults/$tool"
fi

# fail CODE TEXT...: every text is a line on standard error.
fail() {
    code=$1
    shift
    printf '%s\n' "$@" >&2
    exit "$code"
}

# show FILE: its text. The shell reads the usual few lines by itself: to start another program takes
# longer than all else that most tools do.
show() {
    shown=
    lines=0
    {
        while [ "$lines" -lt 50 ] && IFS= read -r line; do
            shown=$shown$line'
'
            line=
            lines=$((lines + 1))
        done
        printf '%s' "$shown$line"
        [ "$lines" -lt 50 ] || "$real/cat"
    } < "$1"
}

# answer NAME: the tool's whole answer is that file.
answer() {
    show "$answers/$1"
    exit
}

# first_line FILE: its first line in `value`; false when there is no such file.
first_line() {
    value=
    [ -f "$1" ] || return 1
    IFS= read -r value < "$1" || [ -n "$value" ]
}

# mac_path PATH: in `path` the Mac's own spelling, whether or not the caller put the root before it.
mac_path() {
    path=$1
    case $path in "$root"/*) path=${path#"$root"} ;; esac
    while [ "$path" != "${path%/}" ] && [ "$path" != / ]; do path=${path%/}; done
}

# account FIELD VALUE: looks for name, uid or gid in the accounts file; sets `account_name`,
# `account_uid`, `account_gid`, `account_home`.
account() {
    while IFS=: read -r account_name _ account_uid account_gid _ account_home _; do
        case $1 in
            name) [ "$account_name" != "$2" ] || return 0 ;;
            uid) [ "$account_uid" != "$2" ] || return 0 ;;
        esac
    done < "$root/etc/passwd"
    return 1
}
