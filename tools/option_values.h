#pragma once

#include <CLI/CLI.hpp>

/* What options accept; each says in plain words what it does not. */

/** A whole number of a range. */
CLI::Validator Number(long long nLeast, long long nMost);

/** A number of bytes, perhaps with k, M or G for thousands of them; becomes the plain number. */
CLI::Validator Bytes(long long nLeast);

/** "HOST:PORT:CONNECT-HOST:CONNECT-PORT", where each part may be empty and a host may stand in brackets. */
CLI::Validator ConnectTo();

/** "NAME: VALUE", "NAME:" or "NAME;". */
CLI::Validator HeaderLine();

/** A text without control characters. */
CLI::Validator Line();

/** A text that is not empty. */
CLI::Validator NotEmpty();

/** A proxy, or an empty text. The complaint does not repeat it, for it may hold a password. */
CLI::Validator Proxy();

/** 64 hexadecimal digits; they become small ones. */
CLI::Validator Sha256Digits();

/** The path of a file that can be read. */
CLI::Validator ReadableFile();

/** "HOST[:PORT]". */
CLI::Validator HostAndPort();
