#!/usr/bin/env bash
# Every check that takes longer than the tests: sanitizers, the other compiler, valgrind, static analysis and a minute of each fuzzer.
# Usage: scripts/check.sh [CHECK …], by default all: sanitizers clang valgrind tidy cppcheck port fuzz
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh

checks=("$@")
[ ${#checks[@]} -gt 0 ] || checks=(sanitizers clang valgrind tidy cppcheck port fuzz)
fuzz_seconds=${FUZZ_SECONDS:-60}
report=()

note() # WHAT WAS FOUND
{
    echo "-- $*"
    report+=("$*")
}

all_tests() # PRESET
{
    echo "== All tests under the preset $1"
    bash scripts/test.sh "$1" | tee build/check.log | grep -E '^[0-9]+% tests passed' || { cat build/check.log; return 1; }
    note "$1: $(grep -E '^[0-9]+% tests passed' build/check.log)"
}

sanitizers()
{
    all_tests asan-ubsan
    all_tests tsan
}

memcheck() # EXECUTABLE FILTER
{
    valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite,indirect --error-exitcode=9 \
        "$1" --gtest_filter="$2" >build/check.log 2>&1 || { cat build/check.log; return 1; }
    note "valgrind: $(grep -c '^\[       OK' build/check.log) tests of ${1##*/} without a finding"
}

valgrind_tests()
{
    echo "== Memcheck on the readers and on requests"
    cmake --preset debug >/dev/null
    cmake --build --preset debug >/dev/null
    memcheck build/debug/tests/transcript_test '*'
    memcheck build/debug/tests/engine_test '*SendsWhatTheRecordSays*:*OnlyWholeBodies*'
}

sources()
{
    git ls-files -- 'veltra/*.cpp' 'tools/*.cpp' 'bench/*.cpp'
}

tidy()
{
    echo "== clang-format and clang-tidy, and each public header by itself"
    cmake --preset debug >/dev/null
    cmake --build --preset debug --target all_verify_interface_header_sets >/dev/null
    git ls-files -- '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
    note "clang-format: $(git ls-files -- '*.cpp' '*.h' | wc -l) files without a finding"
    sources | grep -v ^bench/ | xargs -P "$(nproc)" -n 1 clang-tidy -p build/debug --quiet 2>build/check.log ||
        { cat build/check.log; return 1; }
    note "clang-tidy: $(sources | grep -vc ^bench/) files without a finding"
}

run_cppcheck()
{
    echo "== cppcheck"
    sources | xargs cppcheck --enable=warning,performance,portability --inline-suppr --error-exitcode=1 --quiet \
        --language=c++ --std=c++17 -I .
    note "cppcheck: $(sources | wc -l) files without a finding"
}

port()
{
    echo "== The wrapper's tests over a maker's library, whose part our own platform plays"
    g++ -std=c++17 -fPIC -shared -I . veltra/desktop/*.cpp -lcurl -pthread -o build/libmaker.so
    cmake -S . -B build/port -G Ninja -DVELTRA_PLATFORM=external -DVELTRA_WRAPPER_TESTS="$PWD/build/libmaker.so" >/dev/null
    cmake --build build/port >/dev/null
    ctest --test-dir build/port -j "$(nproc)" >build/check.log || { cat build/check.log; return 1; }
    note "port: $(grep -E '^[0-9]+% tests passed' build/check.log)"
}

fuzz()
{
    local fuzzer options
    echo "== Each fuzzer for $fuzz_seconds seconds, from the kept corpus"
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz >/dev/null
    for fuzzer in xml engine; do
        rm -rf "build/corpus-$fuzzer"
        mkdir "build/corpus-$fuzzer"
        options=(-max_total_time="$fuzz_seconds" -timeout=25 -print_final_stats=1 -artifact_prefix=build/)
        # The threads of its server work on behind an input, and what they hold then is no leak.
        [ "$fuzzer" != engine ] || options+=(-detect_leaks=0)
        "build/fuzz/fuzz/${fuzzer}_fuzzer" "${options[@]}" "build/corpus-$fuzzer" "fuzz/corpus/$fuzzer" \
            >build/check.log 2>&1 || { tail -n 100 build/check.log; return 1; }
        note "${fuzzer}_fuzzer: $(awk '/number_of_executed_units/ { print $2 }' build/check.log) executions without a finding"
    done
}

install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" \
    git clang clang-tidy clang-format cppcheck libclang-rt-dev valgrind
mkdir -p build
for check in "${checks[@]}"; do
    case $check in
    clang) all_tests clang ;;
    sanitizers | tidy | port | fuzz) "$check" ;;
    valgrind) valgrind_tests ;;
    cppcheck) run_cppcheck ;;
    *) echo "check: there is no check $check" >&2 && exit 2 ;;
    esac
done
echo "== All checks passed"
printf '%s\n' "${report[@]}"
