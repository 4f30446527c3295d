// orvelle-x11-painter: a small X client for capture tests and benchmarks. It opens one
// window and repaints it 60 times a second from the monotonic clock:
//   counter  a solid background and, at the top left, the number of the current tick as a
//            row of black and white blocks (bit 0 first), so that a recording can be read
//            back frame by frame;
//   scroll   a page of text-like lines scrolling upwards with a bouncing box over it,
//            drawn off screen and shown in one copy (the load of scrolling a document),
//            and the counter.
// The counter is the tick index since start; ticks that come late are skipped, so it
// follows the clock, not the number of paints. Each picture appears in one request, so
// no capture sees half of it.
//
// Usage: orvelle-x11-painter [--geometry WxH+X+Y] [--title T] [--class C] [--role R]
//                            [--mode counter|scroll] [--rate HZ] [--ready FILE]

#include "painter_layout.h"

#include <time.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

using orvelle::painter::kBlock;
using orvelle::painter::kCounterBits;
using orvelle::painter::kMargin;

struct Options {
    int width = 640;
    int height = 360;
    int x = 0;
    int y = 0;
    std::string title = "Painter";
    std::string className = "OrvellePainter";
    std::string role;
    std::string mode = "counter";
    double rate = 60;
    std::string ready;
};

Options parse(int argc, char** argv) {
    Options options;
    for (int index = 1; index + 1 < argc; index += 2) {
        const std::string key = argv[index];
        const std::string value = argv[index + 1];
        if (key == "--geometry") {
            std::sscanf(value.c_str(), "%dx%d+%d+%d", &options.width, &options.height, &options.x,
                        &options.y);
        } else if (key == "--title") {
            options.title = value;
        } else if (key == "--class") {
            options.className = value;
        } else if (key == "--role") {
            options.role = value;
        } else if (key == "--mode") {
            options.mode = value;
        } else if (key == "--rate") {
            options.rate = std::atof(value.c_str());
        } else if (key == "--ready") {
            options.ready = value;
        } else {
            std::fprintf(stderr, "orvelle-x11-painter: unknown option %s\n", key.c_str());
            std::exit(2);
        }
    }
    return options;
}

xcb_atom_t atom(xcb_connection_t* c, const char* name) {
    auto* reply = xcb_intern_atom_reply(
        c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr);
    const xcb_atom_t value =
        reply != nullptr ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
    std::free(reply);
    return value;
}

void setText(xcb_connection_t* c, xcb_window_t w, xcb_atom_t property, xcb_atom_t type,
             const std::string& text) {
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, w, property, type, 8,
                        static_cast<uint32_t>(text.size()), text.data());
}

uint32_t pixel(int r, int g, int b) {
    return static_cast<uint32_t>((r << 16) | (g << 8) | b);
}

// A small deterministic hash for the lines' word widths.
uint32_t mix(uint32_t a, uint32_t b) {
    uint32_t h = a * 0x9e3779b1U ^ (b + 0x7f4a7c15U);
    h ^= h >> 15;
    h *= 0x2c1b3c6dU;
    h ^= h >> 12;
    return h;
}

} // namespace

int main(int argc, char** argv) {
    const Options options = parse(argc, argv);
    int screenNumber = 0;
    xcb_connection_t* c = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(c) != 0) {
        std::fprintf(stderr, "orvelle-x11-painter: cannot open the display\n");
        return 1;
    }
    xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const uint32_t background =
        pixel(orvelle::painter::kBackgroundRed, orvelle::painter::kBackgroundGreen,
              orvelle::painter::kBackgroundBlue);
    const xcb_window_t window = xcb_generate_id(c);
    const uint32_t values[] = {background,
                               XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_STRUCTURE_NOTIFY};
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root,
                      static_cast<int16_t>(options.x), static_cast<int16_t>(options.y),
                      static_cast<uint16_t>(options.width), static_cast<uint16_t>(options.height),
                      0, XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_EVENT_MASK, values);
    const xcb_atom_t utf8 = atom(c, "UTF8_STRING");
    setText(c, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, options.title);
    setText(c, window, atom(c, "_NET_WM_NAME"), utf8, options.title);
    const std::string wmClass =
        "painter" + std::string(1, '\0') + options.className + std::string(1, '\0');
    setText(c, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, wmClass);
    if (!options.role.empty()) {
        setText(c, window, atom(c, "WM_WINDOW_ROLE"), XCB_ATOM_STRING, options.role);
    }
    const uint32_t pid = static_cast<uint32_t>(getpid());
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, atom(c, "_NET_WM_PID"), XCB_ATOM_CARDINAL,
                        32, 1, &pid);
    xcb_map_window(c, window);
    xcb_flush(c);

    const bool scroll = options.mode == "scroll";
    const xcb_gcontext_t gc = xcb_generate_id(c);
    xcb_create_gc(c, gc, window, 0, nullptr);
    xcb_pixmap_t back = 0;
    if (scroll) {
        back = xcb_generate_id(c);
        xcb_create_pixmap(c, screen->root_depth, back, window, static_cast<uint16_t>(options.width),
                          static_cast<uint16_t>(options.height));
    }
    const auto fill = [&](xcb_drawable_t target, uint32_t colour,
                          const std::vector<xcb_rectangle_t>& rects) {
        xcb_change_gc(c, gc, XCB_GC_FOREGROUND, &colour);
        xcb_poly_fill_rectangle(c, target, gc, static_cast<uint32_t>(rects.size()), rects.data());
    };
    const int stripWidth = kCounterBits * kBlock;
    std::vector<uint32_t> strip(static_cast<size_t>(stripWidth) * kBlock);
    const auto putCounter = [&](xcb_drawable_t target, uint32_t counter) {
        for (int bit = 0; bit < kCounterBits; ++bit) {
            const uint32_t colour = ((counter >> bit) & 1U) != 0 ? 0xffffffU : 0;
            for (int row = 0; row < kBlock; ++row) {
                for (int col = 0; col < kBlock; ++col) {
                    strip[static_cast<size_t>(row) * stripWidth + bit * kBlock + col] = colour;
                }
            }
        }
        xcb_put_image(c, XCB_IMAGE_FORMAT_Z_PIXMAP, target, gc, static_cast<uint16_t>(stripWidth),
                      kBlock, kMargin, kMargin, 0, screen->root_depth,
                      static_cast<uint32_t>(strip.size() * 4),
                      reinterpret_cast<const uint8_t*>(strip.data()));
    };

    bool mapped = false;
    bool readyWritten = false;
    timespec origin{};
    clock_gettime(CLOCK_MONOTONIC, &origin);
    const auto period = static_cast<int64_t>(1e9 / (options.rate > 0 ? options.rate : 60));
    const auto originNs = static_cast<int64_t>(origin.tv_sec) * 1000000000 + origin.tv_nsec;
    int64_t tick = 0;
    std::vector<xcb_rectangle_t> words;
    while (true) {
        while (xcb_generic_event_t* event = xcb_poll_for_event(c)) {
            const uint8_t type = event->response_type & 0x7f;
            if (type == XCB_MAP_NOTIFY || type == XCB_EXPOSE) {
                mapped = true;
            }
            std::free(event);
        }
        if (xcb_connection_has_error(c) != 0) {
            return 0;
        }
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const int64_t nowNs = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
        tick = std::max(tick, (nowNs - originNs) / period);
        const auto counter = static_cast<uint32_t>(tick);
        if (scroll) {
            fill(back, 0xffffffU,
                 {{0, 0, static_cast<uint16_t>(options.width),
                   static_cast<uint16_t>(options.height)}});
            words.clear();
            const int offset = static_cast<int>(tick * 3);
            const int lineHeight = 20;
            for (int line = offset / lineHeight; line * lineHeight - offset < options.height;
                 ++line) {
                int x = 40;
                const int y = line * lineHeight - offset + 6;
                for (int word = 0; x < options.width - 40; ++word) {
                    const int width = 20 + static_cast<int>(mix(static_cast<uint32_t>(line),
                                                                static_cast<uint32_t>(word)) %
                                                            90);
                    words.push_back({static_cast<int16_t>(x), static_cast<int16_t>(y),
                                     static_cast<uint16_t>(width), 10});
                    x += width + 8;
                }
            }
            fill(back, pixel(90, 90, 96), words);
            const int span = std::max(1, options.width - 200);
            const int phase = static_cast<int>((tick * 7) % (2 * span));
            const int boxX = phase < span ? phase : 2 * span - phase;
            const int boxY = options.height / 2 - 60;
            fill(back, pixel(230, 80, 60),
                 {{static_cast<int16_t>(boxX), static_cast<int16_t>(boxY), 200, 120}});
            putCounter(back, counter);
            xcb_copy_area(c, back, window, gc, 0, 0, 0, 0, static_cast<uint16_t>(options.width),
                          static_cast<uint16_t>(options.height));
        } else if (mapped) {
            putCounter(window, counter);
        }
        xcb_flush(c);
        if (mapped && !readyWritten && !options.ready.empty()) {
            // Round trip: the first picture is on the screen before the file says so.
            std::free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
            std::ofstream(options.ready) << window << "\n";
            readyWritten = true;
        }
        ++tick;
        const int64_t due = originNs + tick * period;
        const timespec wake{static_cast<time_t>(due / 1000000000),
                            static_cast<long>(due % 1000000000)};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr);
    }
}
