#pragma once

// One connection to an X server, with the few helpers every X11 piece needs. Internal to
// the X11 capture library.

#include <xcb/xcb.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvelle::detail {

struct FreeDeleter {
    void operator()(void* pointer) const;
};
// A reply or error from xcb, freed with free().
template <class T>
using XcbReply = std::unique_ptr<T, FreeDeleter>;

class XcbConnection {
public:
    // Connects to the named display ($DISPLAY when empty). Throws Error when it cannot.
    explicit XcbConnection(const std::string& displayName);
    ~XcbConnection();
    XcbConnection(const XcbConnection&) = delete;
    XcbConnection& operator=(const XcbConnection&) = delete;

    xcb_connection_t* get() const { return connection_; }
    xcb_screen_t* screen() const { return screen_; }
    xcb_window_t root() const { return screen_->root; }
    const std::string& displayName() const { return displayName_; }

    xcb_atom_t atom(const char* name);
    // A window's property as bytes, absent when the window does not have it.
    std::optional<std::vector<uint8_t>> property(xcb_window_t window, xcb_atom_t property,
                                                 xcb_atom_t type, uint32_t maxLongs = 4096);
    std::optional<std::string> textProperty(xcb_window_t window, const char* name);
    std::optional<uint32_t> cardinalProperty(xcb_window_t window, const char* name);
    std::vector<uint32_t> windowListProperty(xcb_window_t window, const char* name);

private:
    xcb_connection_t* connection_ = nullptr;
    xcb_screen_t* screen_ = nullptr;
    std::string displayName_;
};

} // namespace orvelle::detail
