#!/usr/bin/env bash
# Tests that everything named in README.md, CONTRIBUTING.md and docs/ exists: linked files and headings,
# and the paths, commands, presets, programs, tests and variables in their code.
set -euo pipefail
cd "$(dirname "$0")/.."

failures=0
complain() {
    echo "$page: $*"
    failures=1
}

# A page without its code blocks; these; the code spans in the former; and all its code.
prose() {
    awk '/^```/ {fenced = !fenced; next} !fenced && !/^    /' "$page"
}
blocks() {
    awk '/^```/ {fenced = !fenced; next} fenced || /^    /' "$page"
}
# shellcheck disable=SC2016  # the page's backquotes
spans() {
    prose | awk -v RS= '{gsub("\n", " "); print}' | grep -oE '`[^`]+`' | tr -d '`' || true
}
code() {
    spans
    blocks
}

# anchors PAGE: its headings in the form of links.
anchors() {
    awk '/^```/ {fenced = !fenced; next} !fenced && /^#+ /' "$1" | sed 's/^#* //' |
        tr '[:upper:] ' '[:lower:]-' | sed 's/[^a-z0-9_-]//g'
}

check_links() {
    local link file
    while read -r link; do
        file=${link%%#*}
        [[ $link == *:* ]] && continue # elsewhere
        file=$(dirname "$page")/${file:-$(basename "$page")}
        if [[ ! -e $file ]]; then
            complain "a link to $link, which is not there"
        elif [[ $link == *'#'* ]] && ! anchors "$file" | grep -qxF -- "${link#*#}"; then
            complain "a link to $link, where no such heading is"
        fi
    done < <(prose | grep -oE '\]\([^)]+\)' | sed 's/^](//; s/)$//')
}

is_target() {
    grep -qE "add_(executable|library|test_program)\($1( |$)" CMakeLists.txt ./*/CMakeLists.txt \
        ./*/*/CMakeLists.txt
}

# is_preset KIND NAME: whether it exists and is not hidden.
is_preset() {
    awk -v kind="\"$1Presets\":" -v name="\"$2\"" '
        index($0, "Presets\":") {within = index($0, kind)}
        /"name": / {here = within && index($0, "\"name\": " name); found = found || here}
        here && /"hidden": true/ {found = 0}
        END {exit !found}' CMakePresets.json
}

# What looks like a path in the repository: begins with one of its directories, or is a source's name.
check_path() {
    local span=$1
    if [[ $span =~ ^build/([a-z-]+)/bin/([A-Za-z_-]+)\.exe$ ]]; then
        is_preset configure "${BASH_REMATCH[1]}" || complain "$span: no such preset"
        is_target "${BASH_REMATCH[2]}" || complain "$span: no such program"
    elif [[ $span =~ ^(src|tests|tools|docs|cmake|packaging|\.ci)(/[A-Za-z0-9_.*-]*)+$ ]]; then
        compgen -G "$span" >/dev/null || complain "$span is not there"
    elif [[ $span =~ ^([A-Za-z0-9_.-]+\.(cpp|h|sh|md|cmake|cfg)|CMake[A-Za-z]+\.[a-z]+)$ ]]; then
        [[ $(find . -path ./build -prune -o -path ./.git -prune -o -name "$span" -print) ]] ||
            complain "no file is named $span"
    elif [[ $span =~ ^([a-z]+_[a-z_]+)\.exe$ ]]; then
        is_target "${BASH_REMATCH[1]}" || complain "no program is named $span"
    fi
}

usage=$(./dev)

# check_dev ARGUMENT...: a call of ./dev. A word in capitals is a placeholder.
check_dev() {
    (($#)) || return 0
    local command=$1 argument forms
    shift
    # No command takes two words, so nothing is executed.
    if [[ $(./dev "$command" one two 2>&1) == *'there is no command'* ]]; then
        complain "./dev has no command $command"
        return
    fi
    forms=$(grep "^  $command " <<<"$usage") || complain "the usage of ./dev does not name $command"
    for argument in "$@"; do
        case $argument in
            -- | NAME | OPTION) ;;
            --*) [[ $forms == *"$argument"* ]] || complain "./dev $command has no $argument" ;;
            /*) [[ $usage == *"$argument"* ]] || complain "the program has no option $argument" ;;
            *)
                [[ $command == test ]] || complain "./dev $command $argument: too much"
                argument=${argument%-[0-9]} # a share
                grep -qrE "add_test\(NAME [^ ]*$argument|TEST(_[FP])?\(.*${argument/./, }" tests ||
                    complain "no test has a name that contains $argument"
                ;;
        esac
    done
}

# check_cmake WORD...: a call of cmake or ctest.
check_cmake() {
    local kind=configure
    [[ $1 != ctest ]] || kind="test"
    while (($#)); do
        case $1 in
            --build) kind=build ;;
            --preset) is_preset "$kind" "${2:-}" || complain "no $kind preset is named ${2:-}" ;;
            --target) is_target "${2:-}" || complain "no target is named ${2:-}" ;;
        esac
        shift
    done
}

check_code() {
    local line words
    while read -r line; do
        read -ra words <<<"$line"
        case ${words[0]} in
            ./dev) check_dev "${words[@]:1}" ;;
            cmake | ctest) check_cmake "${words[@]}" ;;
        esac
    done < <(code | grep -oE '(^|[ ;&=])(\./dev|cmake|ctest)( [A-Za-z/.-][^ ;&|#]*)*' |
        sed 's/^[ ;&=]*//')
    while read -r line; do
        grep -qrE "\b$line\b" dev cmake src tests/*.sh tests/*/ tests/CMakeLists.txt ||
            complain "nothing reads $line"
    done < <(code | grep -oE '\bFINASET_[A-Z_]+')
}

for page in README.md CONTRIBUTING.md docs/*.md; do
    check_links
    while read -r span; do
        check_path "$span"
    done < <(spans)
    check_code
done

page=CMakePresets.json
cmake --list-presets=all >/dev/null || complain "cmake cannot read it"

exit "$failures"
