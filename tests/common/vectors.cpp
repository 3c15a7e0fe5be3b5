// The vector files through nlohmann::json, copied into the tests' own small tree.
#include "common/vectors.h"

#include "common/test_bytes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

namespace testjson {
namespace {

JsonValue convert(const nlohmann::json& j) {
    JsonValue v;
    switch (j.type()) {
        case nlohmann::json::value_t::boolean:
            v.kind = JsonValue::Kind::kBool;
            v.boolean = j.get<bool>();
            break;
        case nlohmann::json::value_t::number_integer:
        case nlohmann::json::value_t::number_unsigned:
        case nlohmann::json::value_t::number_float:
            v.kind = JsonValue::Kind::kNumber;
            v.text = j.dump();
            break;
        case nlohmann::json::value_t::string:
            v.kind = JsonValue::Kind::kString;
            v.text = j.get<std::string>();
            break;
        case nlohmann::json::value_t::array:
            v.kind = JsonValue::Kind::kArray;
            for (const auto& item : j) v.items.push_back(convert(item));
            break;
        case nlohmann::json::value_t::object:
            v.kind = JsonValue::Kind::kObject;
            for (const auto& [key, member] : j.items()) {
                v.keys.push_back(key);
                v.values.push_back(convert(member));
            }
            break;
        default:
            break;
    }
    return v;
}

}  // namespace

const JsonValue* JsonValue::find(const std::string& key) const {
    for (size_t i = 0; i < keys.size(); ++i) {
        if (keys[i] == key) return &values[i];
    }
    return nullptr;
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
    static const JsonValue missing;
    const JsonValue* found = find(key);
    return found != nullptr ? *found : missing;
}

double JsonValue::number() const { return kind == Kind::kNumber ? std::strtod(text.c_str(), nullptr) : 0; }

std::optional<JsonValue> load_vectors(const std::string& name) {
    const std::string path = std::string(WAPIWPS_VECTORS_DIR) + "/" + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        ADD_FAILURE() << "cannot read the vector file " << path;
        return std::nullopt;
    }
    const nlohmann::json doc = nlohmann::json::parse(in, nullptr, /*allow_exceptions=*/false);
    if (doc.is_discarded()) {
        ADD_FAILURE() << "the vector file " << path << " is not valid JSON";
        return std::nullopt;
    }
    return convert(doc);
}

std::optional<std::vector<uint8_t>> from_hex(const std::string& hex) {
    return testbytes::parse_hex(hex);
}

}  // namespace testjson
