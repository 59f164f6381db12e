#include "simulation/operation.h"

namespace simulation {
namespace {

constexpr const char* kOperationNames[] = {
#define ZTL_NAME(name) #name,
    ZTL_OPERATIONS(ZTL_NAME)
#undef ZTL_NAME
};

}  // namespace

const char* OperationName(Operation operation) { return kOperationNames[static_cast<std::size_t>(operation)]; }

}  // namespace simulation
