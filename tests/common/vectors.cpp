#include "common/vectors.h"

#include <gtest/gtest.h>

#include <fstream>

namespace testjson {

Json load_vectors(const std::string& name) {
    const std::string path = std::string(WAPIWPS_VECTORS_DIR) + "/" + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        ADD_FAILURE() << "cannot read the vector file " << path;
        return Json::object();
    }
    Json doc = Json::parse(in, nullptr, /*allow_exceptions=*/false);
    if (doc.is_discarded()) {
        ADD_FAILURE() << "the vector file " << path << " is not valid JSON";
        return Json::object();
    }
    return doc;
}

}  // namespace testjson
