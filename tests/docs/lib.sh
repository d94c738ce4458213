# Taking programs and commands out of the pages; sourced.

# files_of PAGE FOLDER: writes each code block whose first line names a file to that file.
files_of() {
  awk -v folder="$2" '
    /^```[a-z]+$/ { first = 1; next }
    /^```$/ { file = ""; next }
    first { first = 0; if ($0 ~ /^(\/\/|#) [A-Za-z_]+\.[a-z]+$/) file = folder "/" $2 }
    file { print > file }' "$1"
}

# block_of PAGE HEADING N: prints the N-th indented block below the heading; fails when there is none.
block_of() {
  awk -v heading="$2" -v wanted="$3" '
    /^```/ { fenced = !fenced }
    fenced { next }
    /^#+ / { inside = $0 ~ "^#+ " heading "$"; next }
    inside && /^    / { if (!open) ++block; open = 1; if (block == wanted) { print substr($0, 5); found = 1 }; next }
    { open = 0 }
    END { exit !found }' "$1"
}
