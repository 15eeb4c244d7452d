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
