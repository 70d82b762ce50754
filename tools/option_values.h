#pragma once

#include <CLI/CLI.hpp>

/** Adds an option with a value. @param pszType the value's name in the help */
template <typename Value>
CLI::Option* AddValue(CLI::App& tApp, const char* pszName, Value& tValue, const char* pszType,
                      const CLI::Validator& tValidator, const char* pszDescription)
{
    return tApp.add_option(pszName, tValue, pszDescription)->type_name(pszType)->transform(tValidator);
}

/* Validators of values. Each explains a refusal. */

/** A whole number in a range. */
CLI::Validator Number(long long nLeast, long long nMost);

/** A number of bytes, with an optional k, M or G for thousands, millions, billions; becomes a plain number. */
CLI::Validator Bytes(long long nLeast);

/** "HOST:PORT:CONNECT-HOST:CONNECT-PORT", where each part may be empty and a host may be in brackets. */
CLI::Validator ConnectTo();

/** "NAME: VALUE" or "NAME:". The refusal does not repeat the text: it may hold a token. */
CLI::Validator HeaderLine();

/** A text without control characters. */
CLI::Validator Line();

/** A text that is not empty. */
CLI::Validator NotEmpty();

/** A proxy, or an empty text. The refusal does not repeat the text: it may hold a password. */
CLI::Validator Proxy();

/** 64 hexadecimal digits; letters become small letters. */
CLI::Validator Sha256Digits();

/** The path of a file that can be read. */
CLI::Validator ReadableFile();

/** "HOST[:PORT]". */
CLI::Validator HostAndPort();
