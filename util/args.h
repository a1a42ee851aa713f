#pragma once

#include <cstdint>
#include <map>
#include <string>

// Readers for a parser's configuration, a map of key to text handed over by the host. Keys match exactly, in case
// too. Nothing is ever reported or thrown for bad text: an absent key or an unusable text shows as the default or
// as false, and a result is written only on success.

#pragma GCC visibility push(default)

// "true", "yes", "1" and "on", in any case, are true; any other text is false, even where the default is true: a
// key that is present was meant to change something. The default is for the absent key alone.
bool get_parser_boolean_arg(const std::map<std::string, std::string>& args, const std::string& key,
                            bool default_value);

// The decimal digits that the text starts with, without a range test: what follows them is ignored, and the value
// is cut to 32 bits. A text that starts with anything else (a sign and a blank too) gives the default.
int get_parser_integer_arg(const std::map<std::string, std::string>& args, const std::string& key,
                           int default_value);

// The text as parse_uint32 reads it, or the default.
uint32_t get_parser_uint32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                               uint32_t default_value);

// The text as parse_uint32 reads it. True when a value was stored in `result`.
bool try_get_parser_uint32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                               uint32_t& result);

// The whole text as a decimal from -2147483648 to 2147483647; leading white space, a sign and an empty text (0) are
// accepted as in parse_uint32. True when a value was stored in `result`.
bool try_get_parser_int32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                              int32_t& result);

// Reads the whole text as a decimal of at most 4294967295, as strtoul does: leading white space and a sign are
// accepted, and a minus sign wraps. An empty text is 0, on purpose: a key set to nothing is a key set to zero.
// True when a value was stored in `result`.
extern "C" bool parse_uint32(const char* text, uint32_t* result);

#pragma GCC visibility pop
