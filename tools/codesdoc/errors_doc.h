// docs/errors.md as text, made from the table of check codes.
#pragma once

#include <string>

namespace codesdoc {

std::string errors_markdown();

}  // namespace codesdoc
