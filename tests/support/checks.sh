# Assertions for the shell-script tests: each failure says what was expected and what
# was found, and ends the script with status 1.

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# expect_eq <actual> <expected> <what>
expect_eq() {
    [[ "$1" == "$2" ]] || fail "$3: expected
$2
got
$1"
}

# expect_line <text> <line> <what>: one line of <text> is exactly <line>.
expect_line() {
    grep -qxF -- "$2" <<<"$1" || fail "$3: no line '$2' in
$1"
}

# expect_match <text> <extended regular expression> <what>: one line of <text> matches.
expect_match() {
    grep -qxE -- "$2" <<<"$1" || fail "$3: no line matching '$2' in
$1"
}
