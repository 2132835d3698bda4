# Sourced by ./run and ./check: colours, and what has to be installed and built first.
# Wants $root, the checkout's directory.

if [ -t 1 ]; then
    bold=$'\e[1m' red=$'\e[31m' green=$'\e[32m' plain=$'\e[0m'
else
    bold='' red='' green='' plain=''
fi

say() { printf '%s%s%s\n' "$bold" "$*" "$plain"; }
complain() { printf '%s%s%s\n' "$red" "$*" "$plain" >&2; }

# missing_packages KIND...: the packages of these kinds that are not installed, a line each.
missing_packages() {
    local kind name
    while read -r kind name; do
        case " $* " in
            *" $kind "*) ;;
            *) continue ;;
        esac
        dpkg-query -W -f='${db:Status-Status}\n' "$name" 2>/dev/null | grep -q -x installed || printf '%s\n' "$name"
    done < <(grep -v -e '^#' -e '^$' "$root/cmake/packages.txt")
}

# as_root COMMAND...: runs it as root, by sudo for an ordinary user.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo -- "$@"
    fi
}

apt() { as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o Dpkg::Use-Pty=0 "$@" </dev/null; }

# add_architecture NAME: packages of another processor can be installed after this.
add_architecture() {
    if command -v dpkg >/dev/null && ! dpkg --print-foreign-architectures | grep -q -x "$1"; then
        as_root dpkg --add-architecture "$1" && apt update
    fi
}

# set_up KIND...: installs what is missing, and says so. Nothing is done, and no right needed, when all is there.
set_up() {
    local missing name

    if ! command -v dpkg-query >/dev/null; then
        say "This is no Debian: the packages of cmake/packages.txt have to be there by other means."
        return 0
    fi
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    say "Installing with apt-get: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ] && ! command -v sudo >/dev/null; then
        complain "This needs root, and there is no sudo. As root: apt-get install ${missing[*]}"
        return 1
    fi
    for name in "${missing[@]}"; do
        if ! apt-cache show "$name" >/dev/null 2>&1; then
            say "Reading the lists of packages first (apt-get update)"
            apt update || return 1
            break
        fi
    done
    if ! apt install --yes --no-install-recommends "${missing[@]}" >/dev/null; then
        say "That failed; once more with new lists of packages (apt-get update)"
        apt update && apt install --yes --no-install-recommends "${missing[@]}" >/dev/null || return 1
    fi
}

# build PRESET [TARGET...]: configures and builds; quiet but for what goes wrong. Where only some targets are asked for,
# what the tests need may be missing.
build() {
    local preset=$1 directory=$root/build/$1 options=()
    shift
    if [ $# -gt 0 ]; then
        options=(-D DV_TESTS_OPTIONAL=ON)
        set -- --target "$@"
    fi
    mkdir -p "$directory"
    if ! (cd "$root" && cmake --preset "$preset" "${options[@]}") >"$directory/configure.log" 2>&1 </dev/null; then
        cat "$directory/configure.log"
        return 1
    fi
    cmake --build "$directory" "$@" -- --quiet </dev/null
}
