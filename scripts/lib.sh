# shellcheck shell=bash
# Sourced by the other scripts, from the project's root.

# How this process becomes root to install packages: by being it, or by a sudo that asks nothing, or
# that somebody at the terminal can answer.
may_install() {
    if [ "$(id -u)" -eq 0 ]; then
        as_root=()
    elif command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
        as_root=(sudo)
    else
        return 1
    fi
}

# need PACKAGE...: installs the Debian packages that are missing, or ends with the line that does.
need() {
    local package missing=() log
    command -v dpkg-query >/dev/null || {
        echo "This is no Debian system: install what these Debian packages stand for: $*" >&2
        exit 1
    }
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    may_install || {
        echo "Packages are missing; as root, run:" \
            "apt-get update && apt-get install -y --no-install-recommends ${missing[*]}" >&2
        exit 1
    }
    echo "installing ${missing[*]}"
    log=$(mktemp)
    "${as_root[@]}" apt-get -q -o DPkg::Lock::Timeout=300 update >"$log" 2>&1 &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get -q -o DPkg::Lock::Timeout=300 install -y --no-install-recommends \
            "${missing[@]}" >>"$log" 2>&1 </dev/null || {
        tail -20 "$log" >&2
        rm -f "$log"
        echo "apt-get could not install ${missing[*]}: its last words are above" >&2
        exit 1
    }
    rm -f "$log"
}

# need_to_build [PACKAGE...]: what every build of the presets needs, and the packages given. ccache is
# welcome, but nobody is sent for it.
need_to_build() {
    local welcome=()
    ! may_install || welcome=(ccache)
    need cmake ninja-build g++ util-linux libgtest-dev libcli11-dev nlohmann-json3-dev "$@" \
        "${welcome[@]}"
}

# build PRESET [TARGET...]: always from the preset's own values. What an earlier configuration of the
# folder held (another generator, a package that was not there yet) must not decide what is built;
# objects that still fit are kept.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" --fresh && cmake --build --preset "$preset" ${1+--target "$@"}
}

# Finds out how CMD can be sandboxed here, says so where it is not as usual, and keeps the answer for
# all sandboxes to come.
choose_sandbox() {
    KORX_SANDBOX_WAY=$(scripts/sandbox --way) || exit
    export KORX_SANDBOX_WAY
}

# suite PRESET [CTEST-ARG...]
suite() {
    local preset=$1 serially=()
    shift
    choose_sandbox
    build "$preset" || return
    # In place only one can run at a time; those that wait for it would wait on their own time.
    [ "$KORX_SANDBOX_WAY" != in-place ] || serially=(-j 1)
    ctest --preset "$preset" "${serially[@]}" "$@"
}

# All C and C++ files under version control; none at all is an error.
sources() {
    local files
    files=$(git ls-files '*.c' '*.h' '*.cpp') || return
    [ -n "$files" ] || { echo "git lists no sources here" >&2; return 1; }
    echo "$files"
}

# What outlives the scripts: packages that bare roots were made of, and what was compiled there.
# shellcheck disable=SC2034
cache=${XDG_CACHE_HOME:-$HOME/.cache}/korx

# The mirror that this machine's apt uses for its own release.
mirror() {
    apt-get indextargets --format '$(REPO_URI) $(CODENAME)' \
        'Created-By: Packages' 'Component: main' | awk -v suite="$1" '$2 == suite && !n++ {print $1}'
}

# bare_root DIR: a minimal system of this machine's release, with its way to the mirror.
bare_root() {
    local suite
    need debootstrap
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p "$cache/archives"
    debootstrap --variant=minbase --cache-dir="$cache/archives" "$suite" "$1" \
        "$(mirror "$suite")" >"$cache/debootstrap.log" || {
        cat "$cache/debootstrap.log"
        exit 1
    }
    cp -L /etc/resolv.conf "$1/etc/"
    cp /etc/apt/apt.conf.d/*proxy* "$1/etc/apt/apt.conf.d/" 2>/dev/null || : # if any
}
