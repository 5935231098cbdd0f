# Sourced by ./run and ./test: brings what is missing from the distribution, configures where
# that is due, builds. What it has to say goes to stderr; long output only to a log, whose end
# is shown when something fails.

readonly project_dir="$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)"
readonly shown_log_lines=40
# Who needs more than the programs do adds a list.
package_lists=("$project_dir/scripts/packages.txt")
# What cmake and ctest are started with, where they run in a root of their own.
inside=()

say() { printf '%s\n' "$*" >&2; }
give_up() { say "$*"; exit 1; }

# missing_packages NAME...: prints those that are not installed, one a line.
missing_packages() {
    local name status
    for name in "$@"; do
        status="$(dpkg-query -W -f='${db:Status-Status}\n' "$name" 2>/dev/null || true)"
        grep -qx installed <<<"$status" || printf '%s\n' "$name"
    done
}

needed_packages() {
    grep -hv '^#' "${package_lists[@]}"
    # Qt reaches a display that is Wayland's only through a plugin of its own.
    if [[ -n "${WAYLAND_DISPLAY:-}" && -z "${DISPLAY:-}" ]]; then
        echo qtwayland5
    fi
}

# install_packages LOG
install_packages() {
    command -v dpkg-query >/dev/null && command -v apt-get >/dev/null ||
        give_up "This needs Debian 12 (or a relative of it): apt-get and dpkg-query were not found." \
                "The packages that are needed stand in scripts/packages.txt and scripts/test-packages.txt."
    local -a needed missing as_root=()
    mapfile -t needed < <(needed_packages)
    mapfile -t missing < <(missing_packages "${needed[@]}")
    ((${#missing[@]})) || return 0

    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            give_up "These packages are missing and can only be installed by root (there is no sudo): ${missing[*]}"
        as_root=(sudo)
        [[ -t 0 ]] || as_root+=(-n)
        "${as_root[@]}" true ||
            give_up "These packages are missing, and sudo was refused: ${missing[*]}"
    fi
    as_root+=(env DEBIAN_FRONTEND=noninteractive)

    say "Installing from the distribution: ${missing[*]}"
    local log="$1"
    "${as_root[@]}" apt-get -q update </dev/null >>"$log" 2>&1 ||
        say "The list of packages could not be brought up to date; trying with the one at hand."
    if ! "${as_root[@]}" apt-get -q -y install --no-install-recommends "${missing[@]}" </dev/null >>"$log" 2>&1; then
        tail -n "$shown_log_lines" "$log" >&2
        mapfile -t missing < <(missing_packages "${missing[@]}")
        give_up "These packages could not be installed: ${missing[*]}"
    fi
}

# quietly LOG COMMAND...: shows the command's output only when it fails, and while it runs
# its newest step count ("[12/90]") on a terminal.
quietly() {
    local log="$1" line
    shift
    if [[ -t 2 ]]; then
        "$@" </dev/null 2>&1 | while IFS= read -r line; do
            printf '%s\n' "$line" >>"$log"
            [[ "$line" =~ ^(\[[0-9]+/[0-9]+\]) ]] && printf '\r%s ' "${BASH_REMATCH[1]}" >&2
        done && printf '\r\033[K' >&2 && return 0
    else
        "$@" </dev/null >>"$log" 2>&1 && return 0
    fi
    say ""
    tail -n "$shown_log_lines" "$log" >&2
    return 1
}

# check_folders BUILD_DIR: what a shell, a compiler or a package would complain about at length.
check_folders() {
    local build_dir="$1" temporary="${TMPDIR:-/tmp}"
    [[ -d $temporary && -w $temporary && -x $temporary ]] ||
        give_up "The folder for temporary files, $temporary, cannot be written; TMPDIR names it."
    { mkdir -p "$build_dir" && : >>"$build_dir/prepare.lock" && : >>"$build_dir/prepare.log"; } 2>/dev/null ||
        give_up "The build folder, $build_dir, cannot be written."
}

# prepare PRESET [TARGET...]: leaves build/PRESET up to date; without targets, all of it.
prepare() {
    local preset="$1"
    shift
    local build_dir="$project_dir/build/$preset" log
    log="$build_dir/prepare.log"
    check_folders "$build_dir"
    # Two calls at the same time build one after the other.
    exec {lock_fd}>"$build_dir/prepare.lock"
    flock "$lock_fd"
    : >"$log"
    install_packages "$log"
    # A build that is there follows a change of the project by itself, but not of its preset.
    if [[ ! -f "$build_dir/build.ninja" || "$project_dir/CMakePresets.json" -nt "$build_dir/build.ninja" ]]; then
        say "Configuring (preset $preset) ..."
        quietly "$log" "${inside[@]}" cmake -S "$project_dir" --preset "$preset" ||
            give_up "Configuring failed; the whole output is in $log"
        say "Building; this takes some minutes the first time ..."
    fi
    local -a targets=()
    (($# == 0)) || targets=(--target "$@")
    quietly "$log" "${inside[@]}" cmake --build "$build_dir" "${targets[@]}" ||
        give_up "Building failed; the whole output is in $log"
    exec {lock_fd}>&-
}
