#!/usr/bin/env bash
# The bash completion of rvitunes: a few completions as a user gets them, and the option lists
# it offers against the commands' own --help, both ways, so that neither drifts from the other.
#
#   completion-test.sh COMPLETION_FILE RVITUNES RVITUNES_PLAYER

completion=$1 tool=$2 daemon=$3
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# shellcheck source=/dev/null
source "$completion" || {
    echo "FAIL: cannot source $completion"
    exit 1
}
complete -p rvitunes >/dev/null || fail "no completion registered for rvitunes"
complete -p rvitunes-player >/dev/null || fail "no completion registered for rvitunes-player"

# complete_line WORDS...: the candidates for the last word, sorted, on one line.
complete_line() {
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    if [[ ${COMP_WORDS[0]} == rvitunes-player ]]; then
        _rvitunes_player
    else
        _rvitunes
    fi
    printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ' | sed 's/ $//'
}

# expect "WORDS" "CANDIDATES": exactly these candidates.
expect() {
    local got
    read -r -a words <<<"$1"
    [[ $1 == *" " ]] && words+=("")
    got=$(complete_line "${words[@]}")
    [[ $got == "$2" ]] || fail "'$1' completes to '$got', not '$2'"
}

# expect_has "WORDS" CANDIDATE...: these among the candidates.
expect_has() {
    local line=$1 got
    shift
    read -r -a words <<<"$line"
    [[ $line == *" " ]] && words+=("")
    got=" $(complete_line "${words[@]}") "
    for want in "$@"; do
        [[ $got == *" $want "* ]] || fail "'$line' does not offer $want (offers:$got)"
    done
}

expect "rvitunes pl" "player plist"
expect "rvitunes library pl" "play playlists"
expect "rvitunes library --file lib.xml pl" "play playlists"
expect "rvitunes plist convert --format " "binary1 json xml1"
expect "rvitunes plist convert --format=b" "binary1"
expect "rvitunes library --dialogs t" "terminal"
expect "rvitunes player search x --field ar" "artists"
expect "rvitunes player set F00000000000B301 rat" "rating"
expect "rvitunes player eq o" "off on"
expect "rvitunes help li" "library"
expect "rvitunes demo --" "--file --help --json --keep"
expect "rvitunes player next --" \
    "--embedded --file --help --player-version --timeout --verbose"
expect_has "rvitunes player tracks --" --json --file --timeout
expect_has "rvitunes --" --help --version
expect_has "rvitunes-player --" --library --player-version --version

# File names for --file and for plist operands.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
touch "$scratch/library.xml" "$scratch/other.plist"
expect "rvitunes library playlists --file $scratch/lib" "$scratch/library.xml"
expect "rvitunes plist lint $scratch/oth" "$scratch/other.plist"

# Every option offered for a command appears in that command's --help, and every option its
# --help names is offered somewhere in that command.
for command in plist library player ae event script apps app icons demo; do
    if ! "$tool" "$command" --help >/dev/null 2>&1; then
        echo "note: '$command --help' fails; its options are not checked"
        continue
    fi
    subs=$(_rvitunes_subcommands "$command")
    offered=""
    for sub in "" $subs; do
        # shellcheck disable=SC2086
        help=$("$tool" "$command" $sub --help 2>&1)
        for option in $(_rvitunes_options "$command" "$sub"); do
            offered+=" $option "
            grep -qE -- "(^|[^-[:alnum:]])$option([^-[:alnum:]]|$)" <<<"$help" ||
                fail "'rvitunes $command${sub:+ $sub} --help' does not mention $option"
        done
    done
    for named in $("$tool" "$command" --help | grep -oE -- '--[a-z][-a-z0-9]*' | sort -u); do
        [[ $offered == *" $named "* ]] || fail "'$command --help' names $named, not completed"
    done
done
helped=$("$daemon" --help)
for option in $(_rvitunes_options rvitunes-player); do
    grep -qE -- "(^|[^-[:alnum:]])$option([^-[:alnum:]]|$)" <<<"$helped" ||
        fail "'rvitunes-player --help' does not mention $option"
done
for named in $(grep -oE -- '--[a-z][-a-z0-9]*' <<<"$helped" | sort -u); do
    [[ " $(_rvitunes_options rvitunes-player) " == *" $named "* ]] ||
        fail "'rvitunes-player --help' names $named, not completed"
done

if ((failures > 0)); then
    echo "$failures failure(s)"
    exit 1
fi
echo "bash completion: all checks passed"
