# shellcheck shell=bash
# What the provide-* recipes share: a library made in a folder of ours from the system's own archive. Sourced, never run.

. "$(dirname -- "${BASH_SOURCE[0]}")/project.sh"

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT

# The addresses of the archives that this system is installed from, in whatever form its source lists name them.
archive_addresses() {
    mkdir -p "$work/no-lists/partial"
    apt-get -o "Dir::State::lists=$work/no-lists" update --print-uris |
        sed -nE "s|^'([^']+)/dists/[^/'-]+/InRelease'.*|\1|p" | awk '!seen[$0]++' |
        while read -r address; do
            if [[ $address == mirror+file:* ]]; then
                awk '/^https?:/ { print $1; exit }' "${address#mirror+file:}"
            else
                printf '%s\n' "$address"
            fi
        done
}

# open_archive TYPE SUITE: a second apt beside the system's, with its own sources and state, on the first of those archives
# that is Debian's and has the suite; apt_options selects it.
open_archive() {
    local keys=/usr/share/keyrings/debian-archive-keyring.gpg signed='' address
    [[ ! -f $keys ]] || signed="[signed-by=$keys] "
    mkdir -p "$work/lists/partial" "$work/cache/archives/partial"
    apt_options=(-o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=- -o "Dir::State::lists=$work/lists"
        -o "Dir::Cache=$work/cache" -o Acquire::Languages=none -o APT::Sandbox::User=root -o APT::Update::Error-Mode=any)
    for address in $(archive_addresses); do
        printf '%s\n' "$1 $signed$address $2 main" >"$work/sources.list"
        ! apt-get "${apt_options[@]}" update || return 0
    done
    fail "none of this system's package archives has Debian's $2."
}

# publish NAME RECIPE STAGE: moves a finished folder to its place, complete or not at all.
publish() {
    printf '%s\n' "$2" >"$3/recipe"
    mkdir -p -- "$BIOPROCESSING_DEPS"
    local new=$BIOPROCESSING_DEPS/.$1.$$
    cp -R -- "$3" "$new"
    rm -rf -- "${BIOPROCESSING_DEPS:?}/$1"
    mv -T -- "$new" "$BIOPROCESSING_DEPS/$1"
}
