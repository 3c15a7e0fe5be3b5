// A small JSON reader for the vector files: objects, arrays, strings, numbers, true/false/null.
// Enough for known-answer data; not a general parser (no \u escapes beyond ASCII).
#pragma once

#include <cctype>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace json_mini {

struct Value {
    enum class Kind { Null, Bool, Number, String, Array, Object } kind = Kind::Null;
    std::string text;                          // string, or the number's text
    std::vector<Value> items;                  // array
    std::map<std::string, Value> members;      // object

    const Value& operator[](const std::string& key) const {
        static const Value kNull;
        auto it = members.find(key);
        return it == members.end() ? kNull : it->second;
    }
    bool has(const std::string& key) const { return members.count(key) != 0; }
};

class Reader {
public:
    explicit Reader(std::string s) : s_(std::move(s)) {}
    Value parse() {
        Value v = value();
        return v;
    }

private:
    void ws() {
        while (i_ < s_.size() && std::isspace(static_cast<unsigned char>(s_[i_]))) ++i_;
    }
    std::string string_body() {
        std::string out;
        ++i_;   // opening quote
        while (i_ < s_.size() && s_[i_] != '"') {
            if (s_[i_] == '\\' && i_ + 1 < s_.size()) {
                ++i_;
                const char e = s_[i_];
                out += e == 'n' ? '\n' : e == 't' ? '\t' : e;
                if (e == 'u') i_ += 4;
            } else {
                out += s_[i_];
            }
            ++i_;
        }
        ++i_;   // closing quote
        return out;
    }
    Value value() {
        ws();
        Value v;
        if (i_ >= s_.size()) return v;
        const char c = s_[i_];
        if (c == '{') {
            v.kind = Value::Kind::Object;
            ++i_;
            ws();
            while (i_ < s_.size() && s_[i_] != '}') {
                ws();
                std::string key = string_body();
                ws();
                ++i_;   // colon
                v.members[key] = value();
                ws();
                if (i_ < s_.size() && s_[i_] == ',') ++i_;
                ws();
            }
            ++i_;
        } else if (c == '[') {
            v.kind = Value::Kind::Array;
            ++i_;
            ws();
            while (i_ < s_.size() && s_[i_] != ']') {
                v.items.push_back(value());
                ws();
                if (i_ < s_.size() && s_[i_] == ',') ++i_;
                ws();
            }
            ++i_;
        } else if (c == '"') {
            v.kind = Value::Kind::String;
            v.text = string_body();
        } else {
            const size_t start = i_;
            while (i_ < s_.size() && s_[i_] != ',' && s_[i_] != '}' && s_[i_] != ']' &&
                   !std::isspace(static_cast<unsigned char>(s_[i_])))
                ++i_;
            v.text = s_.substr(start, i_ - start);
            v.kind = v.text == "null" ? Value::Kind::Null
                     : (v.text == "true" || v.text == "false") ? Value::Kind::Bool
                                                                : Value::Kind::Number;
        }
        return v;
    }

    std::string s_;
    size_t i_ = 0;
};

inline Value load(const std::string& path) {
    std::ifstream in(path);
    std::stringstream ss;
    ss << in.rdbuf();
    return Reader(ss.str()).parse();
}

inline std::vector<uint8_t> hex(const std::string& h) {
    std::vector<uint8_t> out;
    for (size_t i = 0; i + 1 < h.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoi(h.substr(i, 2), nullptr, 16)));
    return out;
}

}  // namespace json_mini
