// The small JSON reader of the ZEV tests.
#include "common/json_lite.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace testjson {
namespace {

class Parser {
  public:
    explicit Parser(const std::string& s) : s_(s) {}

    std::optional<JsonValue> document() {
        JsonValue v;
        if (!value(v, 0)) return std::nullopt;
        skip_space();
        if (pos_ != s_.size()) return std::nullopt;
        return v;
    }

  private:
    static constexpr int kMaxDepth = 32;

    void skip_space() {
        while (pos_ < s_.size() &&
               (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\r' || s_[pos_] == '\t')) {
            ++pos_;
        }
    }

    bool take(char c) {
        skip_space();
        if (pos_ < s_.size() && s_[pos_] == c) {
            ++pos_;
            return true;
        }
        return false;
    }

    bool literal(const char* word) {
        const std::string w(word);
        if (s_.compare(pos_, w.size(), w) != 0) return false;
        pos_ += w.size();
        return true;
    }

    bool string(std::string& out) {
        if (!take('"')) return false;
        while (pos_ < s_.size()) {
            const char c = s_[pos_++];
            if (c == '"') return true;
            if (c != '\\') {
                out.push_back(c);
                continue;
            }
            if (pos_ >= s_.size()) return false;
            const char e = s_[pos_++];
            switch (e) {
                case '"':
                case '\\':
                case '/':
                    out.push_back(e);
                    break;
                case 'n':
                    out.push_back('\n');
                    break;
                case 't':
                    out.push_back('\t');
                    break;
                case 'r':
                    out.push_back('\r');
                    break;
                case 'b':
                    out.push_back('\b');
                    break;
                case 'f':
                    out.push_back('\f');
                    break;
                case 'u': {
                    if (pos_ + 4 > s_.size()) return false;
                    const unsigned code = std::stoul(s_.substr(pos_, 4), nullptr, 16);
                    pos_ += 4;
                    out.push_back(code < 0x80 ? static_cast<char>(code) : '?');
                    break;
                }
                default:
                    return false;
            }
        }
        return false;
    }

    bool number(std::string& out) {
        const size_t start = pos_;
        while (pos_ < s_.size() &&
               std::string("+-0123456789.eE").find(s_[pos_]) != std::string::npos) {
            ++pos_;
        }
        out = s_.substr(start, pos_ - start);
        return !out.empty();
    }

    bool value(JsonValue& v, int depth) {
        if (depth > kMaxDepth) return false;
        skip_space();
        if (pos_ >= s_.size()) return false;
        const char c = s_[pos_];
        if (c == '{') return object(v, depth);
        if (c == '[') return array(v, depth);
        if (c == '"') {
            v.kind = JsonValue::Kind::kString;
            return string(v.text);
        }
        if (literal("null")) return true;
        if (literal("true") || literal("false")) {
            v.kind = JsonValue::Kind::kBool;
            v.boolean = s_[pos_ - 4] == 't';
            return true;
        }
        v.kind = JsonValue::Kind::kNumber;
        return number(v.text);
    }

    bool object(JsonValue& v, int depth) {
        v.kind = JsonValue::Kind::kObject;
        take('{');
        if (take('}')) return true;
        do {
            std::string key;
            JsonValue member;
            skip_space();
            if (!string(key) || !take(':') || !value(member, depth + 1)) return false;
            v.keys.push_back(std::move(key));
            v.values.push_back(std::move(member));
        } while (take(','));
        return take('}');
    }

    bool array(JsonValue& v, int depth) {
        v.kind = JsonValue::Kind::kArray;
        take('[');
        if (take(']')) return true;
        do {
            JsonValue item;
            if (!value(item, depth + 1)) return false;
            v.items.push_back(std::move(item));
        } while (take(','));
        return take(']');
    }

    const std::string& s_;
    size_t pos_ = 0;
};

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

const JsonValue* JsonValue::find(const std::string& key) const {
    for (size_t i = 0; i < keys.size(); ++i) {
        if (keys[i] == key) return &values[i];
    }
    return nullptr;
}

std::optional<JsonValue> parse_json(const std::string& text) {
    return Parser(text).document();
}

const JsonValue& JsonValue::operator[](const std::string& key) const {
    static const JsonValue missing;
    const JsonValue* found = find(key);
    return found != nullptr ? *found : missing;
}

double JsonValue::number() const { return kind == Kind::kNumber ? std::strtod(text.c_str(), nullptr) : 0; }

std::optional<JsonValue> load_vectors(const std::string& name) {
    std::ifstream in(std::string(WAPIWPS_VECTORS_DIR) + "/" + name, std::ios::binary);
    if (!in) return std::nullopt;
    std::stringstream all;
    all << in.rdbuf();
    return parse_json(all.str());
}

std::optional<std::vector<uint8_t>> from_hex(const std::string& hex) {
    if (hex.size() % 2 != 0) return std::nullopt;
    std::vector<uint8_t> out;
    out.reserve(hex.size() / 2);
    for (size_t i = 0; i < hex.size(); i += 2) {
        const int hi = hex_digit(hex[i]), lo = hex_digit(hex[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out.push_back(static_cast<uint8_t>(hi << 4 | lo));
    }
    return out;
}

}  // namespace testjson
