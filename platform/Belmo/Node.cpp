#include "Belmo/Node.h"

namespace Belmo {

std::atomic<bool> ThreadControl::threadsInUse_{false};

Node::~Node() = default;

}  // namespace Belmo
