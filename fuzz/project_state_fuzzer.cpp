// Project states as they come from files of any age or from a careless hand: reading never
// crashes, and what was read is written and read back to the same value.

#include "fuzz/fuzz_support.h"
#include "project/editor_project_state.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace orvelle;
    const auto json = fuzzing::parse(data, size);
    if (!json) {
        return 0;
    }
    EditorProjectState state;
    try {
        state = decodeJson<EditorProjectState>(*json);
    } catch (const Error&) {
        return 0; // a clear error is the right answer to a bad file
    }
    fuzzing::expectRoundTrip(state);
    return 0;
}
