#!/usr/bin/env bash
# Runs the named checks, by default all: scripts/check.sh [tidy | cppcheck | port | valgrind | fuzz]...
# Each fuzzer runs for FUZZ_SECONDS of the environment, by default 60.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
source scripts/lib/arguments.sh
source scripts/lib/packages.sh

sources() {
    git ls-files -- 'veltra/*.cpp' 'tools/*.cpp' "$@"
}

# Also compiles each public header by itself.
check_tidy() {
    cmake --preset debug >/dev/null
    cmake --build --preset debug --target all_verify_interface_header_sets
    git ls-files -- '*.cpp' '*.h' | xargs clang-format --dry-run -Werror
    sources | xargs -P "$(nproc)" -n 1 clang-tidy -p build/debug --quiet 2>build/tidy.log ||
        { cat build/tidy.log; return 1; }
}

check_cppcheck() {
    sources 'bench/*.cpp' | xargs cppcheck --enable=warning,performance,portability --inline-suppr --error-exitcode=1 \
        --quiet --language=c++ --std=c++17 -I .
}

# Runs the wrapper's tests in a device build, over our own platform as the device maker's library.
check_port() {
    # shellcheck disable=SC2046 # several words
    g++ -std=c++17 -fPIC -shared -I . veltra/desktop/*.cpp $(pkg-config --cflags --libs libcurl glib-2.0) -pthread \
        -o build/libmaker.so
    cmake -S . -B build/port -G Ninja -DVELTRA_PLATFORM=external -DVELTRA_WRAPPER_TESTS="$PWD/build/libmaker.so" >/dev/null
    cmake --build build/port
    ctest --test-dir build/port -j "$(nproc)" --output-on-failure
}

memcheck() { # EXECUTABLE FILTER
    valgrind --quiet --leak-check=full --errors-for-leak-kinds=definite,indirect --error-exitcode=9 \
        "build/debug/tests/$1" --gtest_brief --gtest_filter="$2"
}

check_valgrind() {
    cmake --preset debug >/dev/null
    cmake --build --preset debug
    memcheck transcript_test '*'
    memcheck engine_test '*RequestSendsItsRecord*:*OnlyWholeBodies*'
}

check_fuzz() {
    local fuzzer corpus
    local options=(-max_total_time="${FUZZ_SECONDS:-60}" -timeout=25 -print_final_stats=1 -artifact_prefix=build/)
    cmake --preset fuzz >/dev/null
    cmake --build --preset fuzz
    for fuzzer in xml engine; do
        corpus=build/corpus-$fuzzer
        rm -rf "$corpus"
        mkdir "$corpus"
        # The server's threads still hold memory at the end of an input, which is no leak.
        [ "$fuzzer" != engine ] || options+=(-detect_leaks=0)
        "build/fuzz/fuzz/${fuzzer}_fuzzer" "${options[@]}" "$corpus" "fuzz/corpus/$fuzzer" 2>&1 | tail -n 100
    done
}

[ $# -gt 0 ] || set -- tidy cppcheck port valgrind fuzz
for check in "$@"; do
    declare -F "check_$check" >/dev/null || { echo "check: there is no check $check" >&2; exit 2; }
done
install_packages "${build_packages[@]}" "${library_packages[@]}" "${tool_packages[@]}" "${test_packages[@]}" \
    git clang clang-tidy clang-format cppcheck libclang-rt-dev valgrind
mkdir -p build
for check in "$@"; do
    echo "== $check"
    "check_$check"
done
echo "== Passed: $*"
