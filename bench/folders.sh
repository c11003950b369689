# Folders of Prefetch files for the benchmarks and the output comparison,
# built from the corpus's real files, and the timing the benchmarks share.
# Sourced, not run.

# best_time <command...>: the least wall time of `rounds` runs, in seconds.
best_time() {
    best_seconds=
    best_round=0
    while [ "$best_round" -lt "$rounds" ]; do
        best_start=$(date +%s.%N)
        "$@" > /dev/null 2>&1 || true
        best_end=$(date +%s.%N)
        best_seconds=$(echo "$best_start $best_end ${best_seconds:-}" |
            awk '{ t = $2 - $1; if ($3 != "" && $3 < t) t = $3; printf "%.4f", t }')
        best_round=$((best_round + 1))
    done
    echo "$best_seconds"
}

# corpus_folder <corpus> <work> <file count>: every real file but the
# deliberately broken one, under a unique name (the same program name occurs
# in several folders), copied round after round into <work>/files until there
# are at least <file count>. The sources are listed in <work>/sources.
corpus_folder() {
    _corpus=$1 _work=$2 _wanted=$3
    mkdir -p "$_work/round" "$_work/files"
    find "$_corpus/real" -type f -name '*.pf' ! -path '*/Bad/*' | sort > "$_work/sources"
    [ -s "$_work/sources" ] || { echo "no Prefetch files under $_corpus/real" >&2; return 1; }
    copy_rounds "$_work" "$_wanted"
}

# mam_folder <corpus> <work> <file count>: the same with the Windows 10
# files alone, all of them "MAM" containers.
mam_folder() {
    _corpus=$1 _work=$2 _wanted=$3
    mkdir -p "$_work/round" "$_work/files"
    find "$_corpus/real/Win10" -type f -name '*.pf' | sort > "$_work/sources"
    [ -s "$_work/sources" ] || { echo "no Prefetch files under $_corpus/real/Win10" >&2; return 1; }
    copy_rounds "$_work" "$_wanted"
}

copy_rounds() {
    _index=0
    while read -r _source; do
        _index=$((_index + 1))
        cp "$_source" "$1/round/$_index-$(basename "$_source")"
    done < "$1/sources"
    _round=0
    while [ $((_round * _index)) -lt "$2" ]; do
        _round=$((_round + 1))
        cp -r "$1/round" "$1/files/$_round"
    done
    # Fixed modified times, and one read now: later reads then leave the
    # accessed times alone (relatime), so two runs print the same times.
    find "$1/files" -type f -exec touch -m -d '2020-01-02 03:04:05' {} +
    find "$1/files" -type f | sort > "$1/list"
    xargs -d '\n' cat < "$1/list" > /dev/null
}
