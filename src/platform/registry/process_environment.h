// ProcessEnvironment: the environment of this process. Names match without regard to the case of
// ASCII letters; where two differ only in case, the one spelled as asked for wins.
#pragma once

#include <string>

#include "platform/registry.h"

namespace trevix::registry {

class ProcessEnvironment final : public Environment {
 public:
    std::string Entry(int position) override;
    std::string Expand(const std::string& text) override;
};

}  // namespace trevix::registry
