// A small JSON reader for the known-answer files: objects, arrays, strings (with the simple
// escapes), numbers, true/false/null. Enough for the vector files, nothing more.
#pragma once

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace json_lite {

struct Value {
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<Value> items;
    std::map<std::string, Value> fields;

    bool has(const std::string& key) const { return fields.count(key) != 0; }
    const Value& operator[](const std::string& key) const {
        static const Value missing;
        auto it = fields.find(key);
        return it == fields.end() ? missing : it->second;
    }
    const std::string& str() const { return text; }
};

class Parser {
  public:
    explicit Parser(const std::string& s) : s_(s) {}
    bool parse(Value& out) {
        if (!value(out)) return false;
        ws();
        return pos_ == s_.size();
    }

  private:
    void ws() {
        while (pos_ < s_.size() &&
               (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\r' || s_[pos_] == '\t'))
            ++pos_;
    }
    bool literal(const char* word) {
        const std::string w(word);
        if (s_.compare(pos_, w.size(), w) != 0) return false;
        pos_ += w.size();
        return true;
    }
    bool string(std::string& out) {
        if (pos_ >= s_.size() || s_[pos_] != '"') return false;
        ++pos_;
        while (pos_ < s_.size() && s_[pos_] != '"') {
            char c = s_[pos_++];
            if (c == '\\') {
                if (pos_ >= s_.size()) return false;
                const char e = s_[pos_++];
                switch (e) {
                    case 'n':
                        c = '\n';
                        break;
                    case 't':
                        c = '\t';
                        break;
                    case 'r':
                        c = '\r';
                        break;
                    case 'u': {
                        if (pos_ + 4 > s_.size()) return false;
                        const long cp = std::strtol(s_.substr(pos_, 4).c_str(), nullptr, 16);
                        pos_ += 4;
                        c = cp < 0x80 ? static_cast<char>(cp) : '?';
                        break;
                    }
                    default:
                        c = e;
                        break;
                }
            }
            out.push_back(c);
        }
        if (pos_ >= s_.size()) return false;
        ++pos_;
        return true;
    }
    bool value(Value& v) {
        ws();
        if (pos_ >= s_.size()) return false;
        const char c = s_[pos_];
        if (c == '{') {
            v.kind = Value::kObject;
            ++pos_;
            ws();
            if (pos_ < s_.size() && s_[pos_] == '}') return ++pos_, true;
            for (;;) {
                ws();
                std::string key;
                if (!string(key)) return false;
                ws();
                if (pos_ >= s_.size() || s_[pos_++] != ':') return false;
                Value item;
                if (!value(item)) return false;
                v.fields[key] = std::move(item);
                ws();
                if (pos_ >= s_.size()) return false;
                if (s_[pos_] == ',') {
                    ++pos_;
                    continue;
                }
                if (s_[pos_] == '}') return ++pos_, true;
                return false;
            }
        }
        if (c == '[') {
            v.kind = Value::kArray;
            ++pos_;
            ws();
            if (pos_ < s_.size() && s_[pos_] == ']') return ++pos_, true;
            for (;;) {
                Value item;
                if (!value(item)) return false;
                v.items.push_back(std::move(item));
                ws();
                if (pos_ >= s_.size()) return false;
                if (s_[pos_] == ',') {
                    ++pos_;
                    continue;
                }
                if (s_[pos_] == ']') return ++pos_, true;
                return false;
            }
        }
        if (c == '"') {
            v.kind = Value::kString;
            return string(v.text);
        }
        if (literal("true")) {
            v.kind = Value::kBool;
            v.boolean = true;
            return true;
        }
        if (literal("false")) {
            v.kind = Value::kBool;
            return true;
        }
        if (literal("null")) return true;
        char* end = nullptr;
        v.number = std::strtod(s_.c_str() + pos_, &end);
        if (end == s_.c_str() + pos_) return false;
        v.kind = Value::kNumber;
        pos_ = static_cast<size_t>(end - s_.c_str());
        return true;
    }

    const std::string& s_;
    size_t pos_ = 0;
};

// Reads and parses a file; an empty object when it cannot be read or parsed.
inline Value load_file(const std::string& path, bool* ok = nullptr) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    const std::string text = ss.str();
    Value v;
    const bool good = in.good() || in.eof();
    const bool parsed = good && Parser(text).parse(v);
    if (ok) *ok = parsed;
    return parsed ? v : Value{};
}

}  // namespace json_lite
