// The memory that the library lends to the external FIPS module.
#include "state/FipsModule.h"

namespace krOpenSSL {

alignas(std::max_align_t) constinit unsigned char fipsModuleContext[kFipsModuleContextBytes]{};
alignas(std::max_align_t) constinit unsigned char fipsGeneratorState[kFipsGeneratorStateBytes]{};

} // namespace krOpenSSL
