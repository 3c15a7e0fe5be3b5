// The known-answer files under tests/data/vectors, read with nlohmann::json into a small tree
// that the tests walk: objects, arrays, strings, numbers, literals.
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

// Reads and parses tests/data/vectors/<name>. A missing or malformed file records a test failure
// that names it and gives nullopt, so a test stops with that message instead of reading nothing.
std::optional<JsonValue> load_vectors(const std::string& name);

// Hex text (either case, even length) to bytes; nullopt on anything else.
std::optional<std::vector<uint8_t>> from_hex(const std::string& hex);

}  // namespace testjson
