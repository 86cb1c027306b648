// vrig xml: tag trees between their text and binary forms. For tools/vrig
// only.
#pragma once

#include <string>
#include <vector>

namespace vrig {

// `args` follow "xml".
int XmlCommand(const std::vector<std::string>& args);

}  // namespace vrig
