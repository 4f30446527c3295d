#include "platform/capture/x11/x11_shareable_content.h"

#include "platform/capture/x11/detail/xcb_connection.h"

#include <xcb/randr.h>

#include <algorithm>
#include <cstring>

namespace orvelle {

namespace {

using detail::XcbConnection;
using detail::XcbReply;

std::string atomName(XcbConnection& x, xcb_atom_t atom) {
    const XcbReply<xcb_get_atom_name_reply_t> reply(
        xcb_get_atom_name_reply(x.get(), xcb_get_atom_name(x.get(), atom), nullptr));
    if (!reply) {
        return {};
    }
    return {xcb_get_atom_name_name(reply.get()),
            static_cast<size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

std::vector<CaptureDisplay> randrMonitors(XcbConnection& x) {
    std::vector<CaptureDisplay> displays;
    const xcb_query_extension_reply_t* randr = xcb_get_extension_data(x.get(), &xcb_randr_id);
    if (randr == nullptr || randr->present == 0) {
        return displays;
    }
    const XcbReply<xcb_randr_query_version_reply_t> version(
        xcb_randr_query_version_reply(x.get(), xcb_randr_query_version(x.get(), 1, 5), nullptr));
    if (!version || (version->major_version == 1 && version->minor_version < 5)) {
        return displays;
    }
    const XcbReply<xcb_randr_get_monitors_reply_t> monitors(xcb_randr_get_monitors_reply(
        x.get(), xcb_randr_get_monitors(x.get(), x.root(), 1), nullptr));
    if (!monitors) {
        return displays;
    }
    for (auto it = xcb_randr_get_monitors_monitors_iterator(monitors.get()); it.rem > 0;
         xcb_randr_monitor_info_next(&it)) {
        const xcb_randr_monitor_info_t* info = it.data;
        CaptureDisplay display;
        // The first output names a monitor for as long as it is plugged in; a monitor
        // without outputs (a virtual one) is known by its name.
        display.id = info->nOutput > 0 ? *xcb_randr_monitor_info_outputs(info) : info->name;
        display.name = atomName(x, info->name);
        display.frame = {static_cast<double>(info->x), static_cast<double>(info->y),
                         static_cast<double>(info->width), static_cast<double>(info->height)};
        if (info->primary != 0) {
            displays.insert(displays.begin(), display);
        } else {
            displays.push_back(display);
        }
    }
    return displays;
}

std::string windowTitle(XcbConnection& x, xcb_window_t window) {
    if (auto title = x.textProperty(window, "_NET_WM_NAME"); title && !title->empty()) {
        return *title;
    }
    return x.textProperty(window, "WM_NAME").value_or("");
}

// WM_CLASS holds the instance and the class, each ending in a zero byte; the class is the
// program's name as it presents itself.
std::string windowApplication(XcbConnection& x, xcb_window_t window) {
    const auto bytes = x.property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    if (!bytes) {
        return {};
    }
    const std::string both(bytes->begin(), bytes->end());
    const size_t end = both.find('\0');
    std::string instance = both.substr(0, end);
    if (end == std::string::npos || end + 1 >= both.size()) {
        return instance;
    }
    std::string className = both.substr(end + 1);
    className.erase(std::find(className.begin(), className.end(), '\0'), className.end());
    return className.empty() ? instance : className;
}

bool isViewable(XcbConnection& x, xcb_window_t window, bool* overrideRedirect = nullptr) {
    const XcbReply<xcb_get_window_attributes_reply_t> attributes(xcb_get_window_attributes_reply(
        x.get(), xcb_get_window_attributes(x.get(), window), nullptr));
    if (!attributes) {
        return false;
    }
    if (overrideRedirect != nullptr) {
        *overrideRedirect = attributes->override_redirect != 0;
    }
    return attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
           attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT;
}

std::optional<CaptureRect> windowFrame(XcbConnection& x, xcb_window_t window) {
    const auto geometryCookie = xcb_get_geometry(x.get(), window);
    const auto translateCookie = xcb_translate_coordinates(x.get(), window, x.root(), 0, 0);
    const XcbReply<xcb_get_geometry_reply_t> geometry(
        xcb_get_geometry_reply(x.get(), geometryCookie, nullptr));
    const XcbReply<xcb_translate_coordinates_reply_t> origin(
        xcb_translate_coordinates_reply(x.get(), translateCookie, nullptr));
    if (!geometry || !origin) {
        return std::nullopt;
    }
    return CaptureRect{static_cast<double>(origin->dst_x), static_cast<double>(origin->dst_y),
                       static_cast<double>(geometry->width), static_cast<double>(geometry->height)};
}

bool isDesktopOrDock(XcbConnection& x, xcb_window_t window) {
    const auto bytes = x.property(window, x.atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, 16);
    if (!bytes) {
        return false;
    }
    const xcb_atom_t desktop = x.atom("_NET_WM_WINDOW_TYPE_DESKTOP");
    const xcb_atom_t dock = x.atom("_NET_WM_WINDOW_TYPE_DOCK");
    for (size_t offset = 0; offset + sizeof(xcb_atom_t) <= bytes->size();
         offset += sizeof(xcb_atom_t)) {
        xcb_atom_t type = 0;
        std::memcpy(&type, bytes->data() + offset, sizeof type);
        if (type == desktop || type == dock) {
            return true;
        }
    }
    return false;
}

std::vector<xcb_window_t> clientWindows(XcbConnection& x) {
    // A window manager lists its clients; without one, the mapped children of the root
    // are the top-level windows.
    if (auto clients = x.windowListProperty(x.root(), "_NET_CLIENT_LIST"); !clients.empty()) {
        return clients;
    }
    std::vector<xcb_window_t> windows;
    const XcbReply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(x.get(), xcb_query_tree(x.get(), x.root()), nullptr));
    if (!tree) {
        return windows;
    }
    const xcb_window_t* children = xcb_query_tree_children(tree.get());
    const int count = xcb_query_tree_children_length(tree.get());
    for (int index = 0; index < count; ++index) {
        bool overrideRedirect = false;
        if (isViewable(x, children[index], &overrideRedirect) && !overrideRedirect) {
            windows.push_back(children[index]);
        }
    }
    return windows;
}

} // namespace

ShareableContent x11ShareableContent(const std::string& displayName) {
    XcbConnection x(displayName);
    ShareableContent content;
    content.screenHeight = x.screen()->height_in_pixels;
    content.displays = randrMonitors(x);
    if (content.displays.empty()) {
        content.displays.push_back(
            {x.root(), "Screen",
             CaptureRect{0, 0, static_cast<double>(x.screen()->width_in_pixels),
                         static_cast<double>(x.screen()->height_in_pixels)},
             1});
    }
    for (const xcb_window_t window : clientWindows(x)) {
        if (!isViewable(x, window) || isDesktopOrDock(x, window)) {
            continue;
        }
        const auto frame = windowFrame(x, window);
        if (!frame || frame->isEmpty()) {
            continue;
        }
        CaptureWindow entry;
        entry.id = window;
        entry.title = windowTitle(x, window);
        entry.application = windowApplication(x, window);
        entry.role = x.textProperty(window, "WM_WINDOW_ROLE").value_or("");
        entry.processID =
            static_cast<int32_t>(x.cardinalProperty(window, "_NET_WM_PID").value_or(0));
        entry.frame = *frame;
        content.windows.push_back(std::move(entry));
    }
    return content;
}

} // namespace orvelle
