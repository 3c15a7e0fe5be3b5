// A small JSON reader for the known-answer files: objects, arrays, strings, numbers, literals.
// Enough for the vector files (ASCII text, \uXXXX escapes below 0x80); not a general parser.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace testjson {

struct JsonValue {
    enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };
    Kind kind = Kind::kNull;
    bool boolean = false;
    std::string text;  // a string's value, or a number as written
    std::vector<JsonValue> items;
    std::vector<std::string> keys;  // an object's member names, parallel to values
    std::vector<JsonValue> values;

    // The member named key of an object, or nullptr (also for a non-object).
    const JsonValue* find(const std::string& key) const;
    bool is_string() const { return kind == Kind::kString; }
    // Reference-style access: a missing member reads as a null value.
    const JsonValue& operator[](const std::string& key) const;
    bool has(const std::string& key) const { return find(key) != nullptr; }
    const std::string& str() const { return text; }
    double number() const;  // a number's value; 0 for anything else
};

// Parses a whole document; nullopt on a syntax error or trailing text.
std::optional<JsonValue> parse_json(const std::string& text);

// Reads and parses WAPIWPS_VECTORS_DIR/<name>; nullopt when the file is missing or malformed.
std::optional<JsonValue> load_vectors(const std::string& name);

// Hex text (either case, even length) to bytes; nullopt on anything else.
std::optional<std::vector<uint8_t>> from_hex(const std::string& hex);

}  // namespace testjson
