// The known-answer files under tests/data/vectors, read with nlohmann::json. Members are read
// with at(), so a file that lacks one fails its test with nlohmann's message instead of crashing.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace testjson {

using Json = nlohmann::json;

// Reads and parses tests/data/vectors/<name>. A missing or malformed file records a test failure
// that names it and gives an empty object.
Json load_vectors(const std::string& name);

// A string member, or "" when the object has none (or null).
inline std::string text_or_empty(const Json& v, const char* key) {
    return v.contains(key) && v.at(key).is_string() ? v.at(key).get<std::string>() : std::string();
}

}  // namespace testjson
