# shellcheck shell=bash
# To be sourced. Prints the symbols of "nm" in the form of veltra/symbols/: names as in source code, without versions.
# size_t differs between processors: the write functions, which alone have it, show it as on 64-bit ones.
readable_names() { # STDIN: what nm prints
    sed -E -e 's/^[0-9a-f ]*[A-Za-z] //' -e 's/@.*//' | c++filt | sed -E \
        -e 's/\[abi:cxx11\]//' -e 's/std::__cxx11::/std::/g' \
        -e 's/std::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' \
        -e 's/, std::less<std::string >//' -e 's/, std::allocator<std::pair<[^<>]*> > >/>/g' \
        -e 's/, std::allocator<[^<>]*> >/>/g' \
        -e 's/(unsigned )int( \(\*\)\(char\*)/\1long\2/' -e 's/(\(char\*, unsigned )int(, unsigned )int/\1long\2long/'
}
