# shellcheck shell=sh
# Sourced by the other scripts, from the project's root.

# need PACKAGE...: installs the Debian packages that are missing.
need() {
    missing=
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    echo "installing$missing"
    as_root= && [ "$(id -u)" -eq 0 ] || as_root=sudo
    $as_root apt-get -qq update
    # shellcheck disable=SC2086 # a list of package names
    $as_root env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install -y --no-install-recommends $missing >/dev/null
}

need_build_tools() {
    need cmake ninja-build g++ ccache util-linux
}

# All C and C++ files under version control.
sources() {
    git ls-files '*.c' '*.h' '*.cpp'
}
