// Collects trace lines for the duration of a scope.
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"

namespace msgtest {

struct TraceCapture {
    std::vector<std::string> lines;
    TraceCapture() { trace_set_callback(&TraceCapture::on_line, this, false); }
    ~TraceCapture() { trace_set_callback(nullptr, nullptr, false); }
    static void on_line(void* self, const char* line) {
        static_cast<TraceCapture*>(self)->lines.emplace_back(line);
    }
    bool has(const std::string& line) const {
        for (const auto& l : lines)
            if (l == line) return true;
        return false;
    }
};

}  // namespace msgtest
