# Debian 12 packages by purpose, and the function that installs what is missing.
# Sourced by the other scripts:  . "$(dirname "$0")/packages.sh"
# shellcheck shell=bash disable=SC2034

packages_build=(g++ cmake ninja-build)
packages_tools=(pkg-config libassimp-dev libcairo2-dev libpng-dev zlib1g-dev nlohmann-json3-dev
                fonts-dejavu-core)
packages_tests=(libgtest-dev libgmp-dev e2fsprogs btrfs-progs xfsprogs)
packages_check=(clang clang-format clang-tidy libclang-rt-14-dev pkg-config shellcheck)
packages_bench=(libbenchmark-dev libopenvdb-dev libtbb-dev libboost-dev liboctomap-dev
                libspatialindex-dev liblmdb-dev libsqlite3-dev)
packages_coverage=(gcovr)
packages_demo=(assimp-testmodels)

# Names of those of the given packages that dpkg doesn't list as installed, one a line.
missing_packages() {
    local package
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            echo "$package"
        fi
    done
}

# Runs a command as root: as it is, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "$0: neither root nor sudo here; run as root: $*" >&2
        return 1
    fi
}

# apt-get without questions: waits for another one's lock and tries a broken download again.
apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y \
        -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3 -o Dpkg::Use-Pty=0 "$@" </dev/null
}

# need_packages PACKAGE...: installs those that are missing; silent when there are none.
need_packages() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    if [ "${#missing[@]}" -eq 0 ]; then
        return 0
    fi
    if ! command -v apt-get >/dev/null; then
        echo "$0: please install what these Debian packages hold: ${missing[*]}" >&2
        return 1
    fi
    echo "== Installing packages: ${missing[*]}"
    apt_get update && apt_get --no-install-recommends install "${missing[@]}" >/dev/null
}
