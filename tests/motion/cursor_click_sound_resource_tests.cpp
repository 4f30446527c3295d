// Finding the click sound among the resources.

#include "motion/cursor_click_sound_resource.h"
#include "support/temporary_directory.h"

#include <gtest/gtest.h>

namespace orvelle {
namespace {

using testing::TemporaryDirectory;
using testing::writeTextFile;

// The exact name in the first folder that has it; otherwise the first audio file named like
// a click; otherwise none.
TEST(CursorClickSoundResource, TheExactNameFirstThenAnAudioFileNamedLikeAClick) {
    TemporaryDirectory resources;
    writeTextFile(resources / "Sounds" / "chime.wav", "");
    writeTextFile(resources / "notes" / "click.txt", "");
    EXPECT_FALSE(CursorClickSoundResource::url(resources.path()));
    EXPECT_FALSE(CursorClickSoundResource::url(resources / "missing"));
    writeTextFile(resources / "b" / "Mouse-Click.m4a", "");
    writeTextFile(resources / "a" / "soft_click.aiff", "");
    EXPECT_EQ(CursorClickSoundResource::url(resources.path()), resources / "a" / "soft_click.aiff");
    writeTextFile(resources / "MouseAudio" / "click.wav", "c");
    writeTextFile(resources / "Sounds" / "click.wav", "b");
    EXPECT_EQ(CursorClickSoundResource::url(resources.path()), resources / "Sounds" / "click.wav");
    writeTextFile(resources / "MouseClicks" / "click.wav", "a");
    EXPECT_EQ(CursorClickSoundResource::url(resources.path()),
              resources / "MouseClicks" / "click.wav");
}

} // namespace
} // namespace orvelle
