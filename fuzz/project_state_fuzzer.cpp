// Project states as they come from files of any age or from a careless hand: reading never
// crashes, and what was read is written and read back to the same value.

#include "fuzz/fuzz_support.h"
#include "project/editor_project_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvelle;
    if (const auto state = fuzzing::decode<EditorProjectState>(data, size)) {
        fuzzing::expectRoundTrip(*state);
    }
    return 0;
}
