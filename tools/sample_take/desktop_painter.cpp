#include "sample_take/desktop_painter.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <string_view>

namespace orvelle::SampleTake {

namespace {

// ---- Drawing helpers -------------------------------------------------------------------

struct Color {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
};

constexpr Color rgb(std::uint32_t value, double alpha = 1) {
    return {((value >> 16) & 0xFF) / 255.0, ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0,
            alpha};
}

void setColor(cairo_t* cr, Color color) {
    cairo_set_source_rgba(cr, color.red, color.green, color.blue, color.alpha);
}

void roundedRectangle(cairo_t* cr, double x, double y, double width, double height, double radius) {
    radius = std::min({radius, width / 2, height / 2});
    cairo_new_sub_path(cr);
    cairo_arc(cr, x + width - radius, y + radius, radius, -std::numbers::pi / 2, 0);
    cairo_arc(cr, x + width - radius, y + height - radius, radius, 0, std::numbers::pi / 2);
    cairo_arc(cr, x + radius, y + height - radius, radius, std::numbers::pi / 2, std::numbers::pi);
    cairo_arc(cr, x + radius, y + radius, radius, std::numbers::pi, 3 * std::numbers::pi / 2);
    cairo_close_path(cr);
}

void fillRect(cairo_t* cr, const Rect& rect, Color color) {
    setColor(cr, color);
    cairo_rectangle(cr, rect.x, rect.y, rect.width, rect.height);
    cairo_fill(cr);
}

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

struct ContextDeleter {
    void operator()(cairo_t* cr) const { cairo_destroy(cr); }
};
using Context = std::unique_ptr<cairo_t, ContextDeleter>;

struct LayoutDeleter {
    void operator()(PangoLayout* layout) const { g_object_unref(layout); }
};
using TextLayout = std::unique_ptr<PangoLayout, LayoutDeleter>;

Surface makeSurface(int width, int height) {
    Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, std::max(width, 1), std::max(height, 1)));
    if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) {
        throw std::runtime_error("out of memory for the sample take's picture");
    }
    return surface;
}

// Fonts: the interface in Inter, code in DejaVu Sans Mono; sizes in design pixels.
constexpr const char* kUIFont = "Inter";
constexpr const char* kMonoFont = "DejaVu Sans Mono";

TextLayout makeLayout(cairo_t* cr, const char* family, double size,
                      int weight = PANGO_WEIGHT_NORMAL, bool italic = false) {
    TextLayout layout(pango_cairo_create_layout(cr));
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_SLIGHT);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(pango_layout_get_context(layout.get()), options);
    cairo_font_options_destroy(options);
    pango_layout_context_changed(layout.get());
    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family(font, family);
    pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
    pango_font_description_set_weight(font, static_cast<PangoWeight>(weight));
    if (italic) {
        pango_font_description_set_style(font, PANGO_STYLE_ITALIC);
    }
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);
    return layout;
}

struct TextBox {
    double width = 0;
    double height = 0;
};

TextBox layoutSize(PangoLayout* layout) {
    int width = 0;
    int height = 0;
    pango_layout_get_size(layout, &width, &height);
    return {static_cast<double>(width) / PANGO_SCALE, static_cast<double>(height) / PANGO_SCALE};
}

// Draws text with its top-left corner at (x, y); returns its size.
TextBox drawText(cairo_t* cr, std::string_view text, double x, double y, const char* family,
                 double size, Color color, int weight = PANGO_WEIGHT_NORMAL, double wrap = -1,
                 bool markup = false) {
    TextLayout layout = makeLayout(cr, family, size, weight);
    if (wrap > 0) {
        pango_layout_set_width(layout.get(), static_cast<int>(wrap * PANGO_SCALE));
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
    }
    if (markup) {
        pango_layout_set_markup(layout.get(), text.data(), static_cast<int>(text.size()));
    } else {
        pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    }
    setColor(cr, color);
    cairo_move_to(cr, x, y);
    pango_cairo_show_layout(cr, layout.get());
    return layoutSize(layout.get());
}

// Text vertically centred on a line of the given height.
TextBox drawTextInLine(cairo_t* cr, std::string_view text, double x, double top, double height,
                       const char* family, double size, Color color,
                       int weight = PANGO_WEIGHT_NORMAL, bool markup = false) {
    TextLayout layout = makeLayout(cr, family, size, weight);
    if (markup) {
        pango_layout_set_markup(layout.get(), text.data(), static_cast<int>(text.size()));
    } else {
        pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    }
    const TextBox box = layoutSize(layout.get());
    setColor(cr, color);
    cairo_move_to(cr, x, top + (height - box.height) / 2);
    pango_cairo_show_layout(cr, layout.get());
    return box;
}

// The x offset of a byte index in a line of text.
double textOffset(cairo_t* cr, std::string_view text, size_t index, const char* family,
                  double size) {
    TextLayout layout = makeLayout(cr, family, size);
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    PangoRectangle position{};
    pango_layout_index_to_pos(layout.get(), static_cast<int>(index), &position);
    return static_cast<double>(position.x) / PANGO_SCALE;
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        switch (c) {
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '&':
            result += "&amp;";
            break;
        default:
            result.push_back(c);
        }
    }
    return result;
}

// ---- Code colouring ----------------------------------------------------------------------

namespace Palette {
constexpr Color kEditorBackground = rgb(0x1E2028);
constexpr Color kCurrentLine = rgb(0x262A33);
constexpr Color kSidebar = rgb(0x191B21);
constexpr Color kLineNumber = rgb(0x5C6370);
constexpr Color kCurrentLineNumber = rgb(0xC8CCD4);
constexpr Color kCaret = rgb(0x528BFF);
constexpr Color kDarkTitleBar = rgb(0x24262D);
constexpr Color kTerminalBackground = rgb(0x15171C);
constexpr Color kTerminalText = rgb(0xD7DAE0);
} // namespace Palette

bool isIdentifierCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// A line of C++ as Pango markup, coloured the way a code editor shows it.
std::string codeMarkup(std::string_view line) {
    static constexpr std::array<std::string_view, 14> kKeywords{
        "inline",   "constexpr", "template", "class", "return", "namespace", "const",
        "typename", "auto",      "if",       "else",  "static", "struct",    "using"};
    static constexpr std::array<std::string_view, 6> kTypes{"double", "int",  "T",
                                                            "float",  "bool", "std"};
    const auto span = [](std::string_view text, const char* color, bool italic = false) {
        return std::string("<span foreground=\"") + color + "\"" +
               (italic ? " style=\"italic\"" : "") + ">" + escaped(text) + "</span>";
    };
    std::string markup;
    size_t i = 0;
    const size_t firstText = line.find_first_not_of(' ');
    if (firstText != std::string_view::npos && line[firstText] == '#') {
        const size_t end = line.find(' ', firstText);
        markup += escaped(line.substr(0, firstText));
        markup += span(line.substr(firstText, end - firstText), "#C678DD");
        if (end != std::string_view::npos) {
            markup += span(line.substr(end), "#98C379");
        }
        return markup;
    }
    while (i < line.size()) {
        const char c = line[i];
        if (c == '/' && i + 1 < line.size() && line[i + 1] == '/') {
            markup += span(line.substr(i), "#7F848E", true);
            break;
        }
        if (std::isdigit(static_cast<unsigned char>(c)) != 0) {
            size_t end = i;
            while (end < line.size() &&
                   (std::isdigit(static_cast<unsigned char>(line[end])) || line[end] == '.')) {
                ++end;
            }
            markup += span(line.substr(i, end - i), "#D19A66");
            i = end;
            continue;
        }
        if (isIdentifierCharacter(c)) {
            size_t end = i;
            while (end < line.size() && isIdentifierCharacter(line[end])) {
                ++end;
            }
            const std::string_view word = line.substr(i, end - i);
            if (std::find(kKeywords.begin(), kKeywords.end(), word) != kKeywords.end()) {
                markup += span(word, "#C678DD");
            } else if (std::find(kTypes.begin(), kTypes.end(), word) != kTypes.end()) {
                markup += span(word, "#E5C07B");
            } else if (end < line.size() && line[end] == '(') {
                markup += span(word, "#61AFEF");
            } else {
                markup += span(word, "#ABB2BF");
            }
            i = end;
            continue;
        }
        markup += span(line.substr(i, 1), "#ABB2BF");
        ++i;
    }
    return markup;
}

// ---- The scene's parts ---------------------------------------------------------------------

constexpr double kShadowMargin = 34;
constexpr double kPageContentsWidth = 221; // the browser page's column of contents

struct PixelRect {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;

    bool empty() const { return width <= 0 || height <= 0; }
    int right() const { return x + width; }
    int bottom() const { return y + height; }
    bool intersects(const PixelRect& other) const {
        return x < other.right() && other.x < right() && y < other.bottom() && other.y < bottom();
    }
    bool contains(const PixelRect& other) const {
        return other.x >= x && other.y >= y && other.right() <= right() &&
               other.bottom() <= bottom();
    }
    PixelRect unitedWith(const PixelRect& other) const {
        const int left = std::min(x, other.x);
        const int top = std::min(y, other.y);
        return {left, top, std::max(right(), other.right()) - left,
                std::max(bottom(), other.bottom()) - top};
    }
    PixelRect intersection(const PixelRect& other) const {
        const int left = std::max(x, other.x);
        const int top = std::max(y, other.y);
        return {left, top, std::min(right(), other.right()) - left,
                std::min(bottom(), other.bottom()) - top};
    }
};

struct Window {
    WindowLayout layout;
    Surface surface;  // the window and its shadow, in picture pixels
    PixelRect bounds; // where the surface lies in the picture
    PixelRect opaque; // a part of the picture the window covers completely
    bool active = false;
};

struct Editor {
    std::vector<std::string> lines;
    int caretLine = 0;
    size_t caretColumn = 0; // bytes
    bool caretShown = false;
    double lastKey = -10;
};

struct Terminal {
    std::vector<std::string> lines; // the last one holds the caret
    bool caretShown = false;
    double lastKey = -10;
};

double easeOut(double u) {
    u = std::clamp(u, 0.0, 1.0);
    return 1 - (1 - u) * (1 - u) * (1 - u);
}

// Whether a caret shows: solid while typing, then blinking.
bool caretVisible(double time, double lastKey) {
    const double idle = time - lastKey;
    return idle < 0.5 || std::fmod(idle - 0.5, 1.06) < 0.53;
}

} // namespace

struct DesktopPainter::State {
    const SampleScript& script;
    int width;
    int height;
    double scale;
    Surface picture;
    Context pictureContext;
    Surface desktop; // wallpaper, top bar and dock
    Surface page;    // the browser's whole page
    double pageHeight = 0;
    std::vector<Window> windows; // back to front
    Editor editor;
    Terminal terminal;
    int pageOffset = 0; // pixels the page is scrolled
    size_t nextKey = 0;
    size_t nextClick = 0;
    size_t nextOutput = 0;
    std::vector<PixelRect> damage;
    VideoFrame video;

    State(const SampleScript& s, int w, int h)
        : script(s), width(w), height(h), scale(w / kDesignWidth), picture(makeSurface(w, h)),
          pictureContext(cairo_create(picture.get())), desktop(makeSurface(w, h)) {}

    // ---- Geometry ----

    PixelRect toPixels(const Rect& rect) const {
        const int left = static_cast<int>(std::floor(rect.x * scale));
        const int top = static_cast<int>(std::floor(rect.y * scale));
        const int right = static_cast<int>(std::ceil((rect.x + rect.width) * scale));
        const int bottom = static_cast<int>(std::ceil((rect.y + rect.height) * scale));
        return PixelRect{left, top, right - left, bottom - top}.intersection({0, 0, width, height});
    }

    // A context that draws into a window's surface in design coordinates of the screen.
    Context windowContext(const Window& window) const {
        Context cr(cairo_create(window.surface.get()));
        cairo_translate(cr.get(), -window.bounds.x, -window.bounds.y);
        cairo_scale(cr.get(), scale, scale);
        return cr;
    }

    Window& window(WindowID id) {
        for (auto& window : windows) {
            if (window.layout.id == id) {
                return window;
            }
        }
        throw std::logic_error("no such window");
    }

    void addDamage(const Rect& rect) { addDamage(toPixels(rect)); }
    void addDamage(PixelRect rect) {
        if (rect.empty()) {
            return;
        }
        // Overlapping regions are drawn once.
        for (size_t i = 0; i < damage.size(); ++i) {
            if (damage[i].intersects(rect)) {
                rect = rect.unitedWith(damage[i]);
                damage.erase(damage.begin() + static_cast<long>(i));
                i = static_cast<size_t>(-1);
            }
        }
        damage.push_back(rect);
    }

    // ---- The desktop ----

    void paintDesktop() {
        Context context(cairo_create(desktop.get()));
        cairo_t* cr = context.get();
        cairo_scale(cr, scale, scale);
        // Wallpaper: a deep gradient with soft light.
        cairo_pattern_t* gradient = cairo_pattern_create_linear(0, 0, kDesignWidth, kDesignHeight);
        cairo_pattern_add_color_stop_rgb(gradient, 0, 0.11, 0.20, 0.42);
        cairo_pattern_add_color_stop_rgb(gradient, 0.55, 0.22, 0.18, 0.48);
        cairo_pattern_add_color_stop_rgb(gradient, 1, 0.40, 0.17, 0.46);
        cairo_set_source(cr, gradient);
        cairo_paint(cr);
        cairo_pattern_destroy(gradient);
        const struct {
            double x, y, radius;
            Color color;
        } glows[] = {{380, 920, 700, rgb(0x2BB3C0, 0.38)},
                     {1700, 180, 760, rgb(0xFF7A59, 0.28)},
                     {1250, 1020, 560, rgb(0x7A5CFF, 0.32)},
                     {900, 420, 420, rgb(0x4F8BFF, 0.14)}};
        for (const auto& glow : glows) {
            cairo_pattern_t* radial =
                cairo_pattern_create_radial(glow.x, glow.y, 0, glow.x, glow.y, glow.radius);
            cairo_pattern_add_color_stop_rgba(radial, 0, glow.color.red, glow.color.green,
                                              glow.color.blue, glow.color.alpha);
            cairo_pattern_add_color_stop_rgba(radial, 1, glow.color.red, glow.color.green,
                                              glow.color.blue, 0);
            cairo_set_source(cr, radial);
            cairo_paint(cr);
            cairo_pattern_destroy(radial);
        }
        paintTopBar(cr);
        paintDock(cr);
    }

    static void paintTopBar(cairo_t* cr) {
        fillRect(cr, {0, 0, kDesignWidth, Layout::kPanelHeight}, rgb(0x0F1014, 0.94));
        const double top = 0;
        const double height = Layout::kPanelHeight;
        drawTextInLine(cr, "Activities", 18, top, height, kUIFont, 14, rgb(0xF2F2F2),
                       PANGO_WEIGHT_SEMIBOLD);
        drawTextInLine(cr, "Tue 21 Oct  14:32", kDesignWidth / 2 - 62, top, height, kUIFont, 14,
                       rgb(0xF2F2F2), PANGO_WEIGHT_SEMIBOLD);
        // Network, volume and battery.
        setColor(cr, rgb(0xF2F2F2));
        cairo_set_line_width(cr, 2);
        for (int i = 0; i < 3; ++i) {
            cairo_new_path(cr);
            const double r = 4 + i * 4;
            cairo_arc(cr, 1742, 24, r, -3 * std::numbers::pi / 4, -std::numbers::pi / 4);
            cairo_stroke(cr);
        }
        cairo_move_to(cr, 1772, 13);
        cairo_line_to(cr, 1778, 13);
        cairo_line_to(cr, 1785, 8);
        cairo_line_to(cr, 1785, 26);
        cairo_line_to(cr, 1778, 21);
        cairo_line_to(cr, 1772, 21);
        cairo_close_path(cr);
        cairo_fill(cr);
        cairo_new_path(cr);
        cairo_arc(cr, 1787, 17, 7, -0.7, 0.7);
        cairo_stroke(cr);
        roundedRectangle(cr, 1808, 11, 26, 13, 3);
        cairo_stroke(cr);
        cairo_rectangle(cr, 1811, 14, 17, 7);
        cairo_fill(cr);
        cairo_rectangle(cr, 1835, 15, 3, 5);
        cairo_fill(cr);
        drawTextInLine(cr, "87 %", 1845, top, height, kUIFont, 13, rgb(0xF2F2F2));
    }

    static void paintDock(cairo_t* cr) {
        roundedRectangle(cr, 12, 300, 66, 440, 18);
        setColor(cr, rgb(0x15161B, 0.72));
        cairo_fill(cr);
        const struct {
            std::uint32_t from, to;
            const char* glyph;
            bool running;
        } icons[] = {{0x4A90E2, 0x2C5FAA, "▤", false},  {0xF5A623, 0xD0701B, "◎", true},
                     {0x3A3F4B, 0x22252C, "{ }", true}, {0x2D2F36, 0x121317, ">_", true},
                     {0x7ED321, 0x3E8E14, "♪", false},  {0x9B9B9B, 0x5E5E5E, "⚙", false}};
        double y = 318;
        for (const auto& icon : icons) {
            cairo_pattern_t* fill = cairo_pattern_create_linear(0, y, 0, y + 50);
            const Color from = rgb(icon.from);
            const Color to = rgb(icon.to);
            cairo_pattern_add_color_stop_rgb(fill, 0, from.red, from.green, from.blue);
            cairo_pattern_add_color_stop_rgb(fill, 1, to.red, to.green, to.blue);
            roundedRectangle(cr, 20, y, 50, 50, 12);
            cairo_set_source(cr, fill);
            cairo_fill(cr);
            cairo_pattern_destroy(fill);
            TextLayout layout = makeLayout(cr, kUIFont, 20, PANGO_WEIGHT_BOLD);
            pango_layout_set_text(layout.get(), icon.glyph, -1);
            const TextBox box = layoutSize(layout.get());
            setColor(cr, rgb(0xFFFFFF, 0.92));
            cairo_move_to(cr, 45 - box.width / 2, y + 25 - box.height / 2);
            pango_cairo_show_layout(cr, layout.get());
            if (icon.running) {
                cairo_new_path(cr);
                cairo_arc(cr, 16, y + 25, 2.5, 0, 2 * std::numbers::pi);
                setColor(cr, rgb(0xFFFFFF, 0.85));
                cairo_fill(cr);
            }
            y += 70;
        }
    }

    // ---- Windows ----

    void makeWindows() {
        for (const auto& layout : script.windows) {
            Window window;
            window.layout = layout;
            const Rect& frame = layout.frame;
            window.bounds =
                toPixels({frame.x - kShadowMargin, frame.y - kShadowMargin,
                          frame.width + 2 * kShadowMargin, frame.height + 2 * kShadowMargin});
            window.opaque = toPixels({frame.x + Layout::kCornerRadius, frame.y + 2,
                                      frame.width - 2 * Layout::kCornerRadius, frame.height - 4});
            window.opaque = {window.opaque.x + 1, window.opaque.y + 1, window.opaque.width - 2,
                             window.opaque.height - 2};
            window.surface = makeSurface(window.bounds.width, window.bounds.height);
            windows.push_back(std::move(window));
        }
        windows.back().active = true;
    }

    void paintWindow(Window& window) {
        Context context = windowContext(window);
        cairo_t* cr = context.get();
        cairo_save(cr);
        cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
        cairo_paint(cr);
        cairo_restore(cr);
        const Rect& f = window.layout.frame;
        // A soft shadow: rings of falling strength, dropped a little.
        for (int i = 14; i >= 1; --i) {
            const double grow = i * 2.2;
            roundedRectangle(cr, f.x - grow, f.y - grow + 9, f.width + 2 * grow,
                             f.height + 2 * grow, Layout::kCornerRadius + grow);
            setColor(cr, rgb(0x000000, window.active ? 0.028 : 0.02));
            cairo_fill(cr);
        }
        cairo_save(cr);
        roundedRectangle(cr, f.x, f.y, f.width, f.height, Layout::kCornerRadius);
        cairo_clip(cr);
        switch (window.layout.id) {
        case WindowID::editor:
            paintEditor(cr, window);
            break;
        case WindowID::browser:
            paintBrowser(cr, window);
            break;
        case WindowID::terminal:
            paintTerminal(cr, window);
            break;
        }
        cairo_restore(cr);
        // A hairline edge.
        roundedRectangle(cr, f.x + 0.5, f.y + 0.5, f.width - 1, f.height - 1,
                         Layout::kCornerRadius);
        setColor(cr, rgb(0xFFFFFF, window.layout.id == WindowID::browser ? 0.0 : 0.08));
        cairo_set_line_width(cr, 1);
        cairo_stroke(cr);
        addDamage(window.bounds);
    }

    static void paintTitleBar(cairo_t* cr, const Window& window, Color background, Color text,
                              bool centredTitle = true) {
        const Rect& f = window.layout.frame;
        fillRect(cr, {f.x, f.y, f.width, Layout::kTitleBarHeight}, background);
        if (centredTitle) {
            TextLayout layout = makeLayout(cr, kUIFont, 14, PANGO_WEIGHT_SEMIBOLD);
            pango_layout_set_text(layout.get(), window.layout.title.c_str(), -1);
            const TextBox box = layoutSize(layout.get());
            setColor(cr, window.active ? text : Color{text.red, text.green, text.blue, 0.55});
            cairo_move_to(cr, f.x + (f.width - box.width) / 2,
                          f.y + (Layout::kTitleBarHeight - box.height) / 2);
            pango_cairo_show_layout(cr, layout.get());
        }
        // Minimise, maximise and close, on the right.
        const double middle = f.y + Layout::kTitleBarHeight / 2;
        const bool light = background.red > 0.5;
        for (int i = 0; i < 3; ++i) {
            const double cx = f.x + f.width - 22 - i * 30;
            cairo_arc(cr, cx, middle, 11, 0, 2 * std::numbers::pi);
            setColor(cr, light ? rgb(0x000000, 0.07) : rgb(0xFFFFFF, 0.09));
            cairo_fill(cr);
            setColor(cr, light ? rgb(0x3C4043) : rgb(0xE6E6E6, window.active ? 1.0 : 0.6));
            cairo_set_line_width(cr, 1.5);
            if (i == 0) {
                cairo_move_to(cr, cx - 4, middle - 4);
                cairo_line_to(cr, cx + 4, middle + 4);
                cairo_move_to(cr, cx + 4, middle - 4);
                cairo_line_to(cr, cx - 4, middle + 4);
            } else if (i == 1) {
                cairo_rectangle(cr, cx - 4, middle - 4, 8, 8);
            } else {
                cairo_move_to(cr, cx - 4, middle + 3);
                cairo_line_to(cr, cx + 4, middle + 3);
            }
            cairo_stroke(cr);
        }
    }

    // ---- The editor ----

    Rect codeArea() const {
        const Rect& f = script.window(WindowID::editor).frame;
        const double top = f.y + Layout::kTitleBarHeight + Layout::kEditorTabBarHeight;
        return {f.x + Layout::kEditorSidebarWidth, top, f.width - Layout::kEditorSidebarWidth,
                f.y + f.height - 26 - top};
    }

    Rect editorLineRect(int line) const {
        const Rect area = codeArea();
        return {area.x, editorLineTop(script.window(WindowID::editor), line), area.width,
                Layout::kCodeLineHeight};
    }

    Rect editorStatusBar() const {
        const Rect& f = script.window(WindowID::editor).frame;
        return {f.x, f.y + f.height - 26, f.width, 26};
    }

    void paintEditor(cairo_t* cr, const Window& window) {
        const Rect& f = window.layout.frame;
        fillRect(cr, f, Palette::kEditorBackground);
        paintTitleBar(cr, window, Palette::kDarkTitleBar, rgb(0xE8E8EA));
        // The project's files.
        const Rect sidebar{f.x, f.y + Layout::kTitleBarHeight, Layout::kEditorSidebarWidth,
                           f.height - Layout::kTitleBarHeight - 26};
        fillRect(cr, sidebar, Palette::kSidebar);
        drawText(cr, "EXPLORER", sidebar.x + 18, sidebar.y + 14, kUIFont, 11, rgb(0x8A909C),
                 PANGO_WEIGHT_SEMIBOLD);
        const struct {
            int depth;
            const char* name;
            bool folder;
        } files[] = {{0, "demo", true},
                     {1, "build", true},
                     {1, "include", true},
                     {2, "clamp.hpp", false},
                     {1, "src", true},
                     {2, "main.cpp", false},
                     {1, "tests", true},
                     {2, "clamp_tests.cpp", false},
                     {1, "CMakeLists.txt", false},
                     {1, "CMakePresets.json", false},
                     {1, "README.md", false}};
        double y = sidebar.y + 42;
        for (const auto& file : files) {
            const bool selected = std::string_view(file.name) == "clamp.hpp";
            if (selected) {
                fillRect(cr, {sidebar.x, y, sidebar.width, 24}, rgb(0x2C313C));
            }
            const double x = sidebar.x + 16 + file.depth * 16;
            drawTextInLine(cr, file.folder ? "▾" : "·", x, y, 24, kUIFont, 12, rgb(0x8A909C));
            drawTextInLine(cr, file.name, x + 16, y, 24, kUIFont, 13.5,
                           selected ? rgb(0xFFFFFF) : rgb(0xAAB0BC));
            y += 24;
        }
        // Open files.
        const Rect tabs{sidebar.x + sidebar.width, f.y + Layout::kTitleBarHeight,
                        f.width - sidebar.width, Layout::kEditorTabBarHeight};
        fillRect(cr, tabs, Palette::kSidebar);
        fillRect(cr, {tabs.x, tabs.y, 150, tabs.height}, Palette::kEditorBackground);
        fillRect(cr, {tabs.x, tabs.y, 150, 2}, rgb(0x61AFEF));
        drawTextInLine(cr, "clamp.hpp", tabs.x + 16, tabs.y, tabs.height, kUIFont, 13,
                       rgb(0xFFFFFF));
        drawTextInLine(cr, "main.cpp", tabs.x + 166, tabs.y, tabs.height, kUIFont, 13,
                       rgb(0x7F848E));
        fillRect(cr, codeArea(), Palette::kEditorBackground);
        for (int line = 0; line < visibleEditorLines(); ++line) {
            paintEditorLine(cr, line);
        }
        paintEditorStatus(cr);
    }

    int visibleEditorLines() const {
        const Rect area = codeArea();
        return static_cast<int>((area.height - Layout::kCodeTopPadding) / Layout::kCodeLineHeight);
    }

    bool editorFocused() const { return windows.empty() ? false : window(WindowID::editor).active; }
    const Window& window(WindowID id) const { return const_cast<State*>(this)->window(id); }

    void paintEditorLine(cairo_t* cr, int line) {
        const Rect row = editorLineRect(line);
        const bool current = editorFocused() && editor.caretLine == line && nextClick > 0;
        fillRect(cr, row, current ? Palette::kCurrentLine : Palette::kEditorBackground);
        if (line >= static_cast<int>(editor.lines.size())) {
            return;
        }
        const std::string number = std::to_string(line + 1);
        TextLayout layout = makeLayout(cr, kMonoFont, Layout::kCodeFontSize - 1);
        pango_layout_set_text(layout.get(), number.c_str(), -1);
        const TextBox box = layoutSize(layout.get());
        setColor(cr, current ? Palette::kCurrentLineNumber : Palette::kLineNumber);
        cairo_move_to(cr, row.x + Layout::kEditorGutterWidth - 18 - box.width,
                      row.y + (row.height - box.height) / 2);
        pango_cairo_show_layout(cr, layout.get());
        const double textX = row.x + Layout::kEditorGutterWidth + Layout::kCodeLeftPadding;
        const std::string& text = editor.lines[static_cast<size_t>(line)];
        drawTextInLine(cr, codeMarkup(text), textX, row.y, row.height, kMonoFont,
                       Layout::kCodeFontSize, rgb(0xABB2BF), PANGO_WEIGHT_NORMAL, true);
        if (current && editor.caretShown) {
            const double x =
                textX + textOffset(cr, text, editor.caretColumn, kMonoFont, Layout::kCodeFontSize);
            fillRect(cr, {x - 1, row.y + 2, 2, row.height - 4}, Palette::kCaret);
        }
    }

    void paintEditorStatus(cairo_t* cr) {
        const Rect bar = editorStatusBar();
        fillRect(cr, bar, rgb(0x2F5AC4));
        const std::string position = "Ln " + std::to_string(editor.caretLine + 1) + ", Col " +
                                     std::to_string(editor.caretColumn + 1);
        drawTextInLine(cr, "⎇ main", bar.x + 14, bar.y, bar.height, kUIFont, 12.5, rgb(0xFFFFFF));
        drawTextInLine(cr, position + "     Spaces: 4     UTF-8     C++", bar.x + bar.width - 330,
                       bar.y, bar.height, kUIFont, 12.5, rgb(0xFFFFFF));
    }

    void redrawEditorLines(int from, int to) {
        Window& window = this->window(WindowID::editor);
        Context context = windowContext(window);
        to = std::min(to, visibleEditorLines() - 1);
        for (int line = from; line <= to; ++line) {
            paintEditorLine(context.get(), line);
            addDamage(editorLineRect(line));
        }
    }

    void redrawEditorStatus() {
        Context context = windowContext(window(WindowID::editor));
        paintEditorStatus(context.get());
        addDamage(editorStatusBar());
    }

    void typeInEditor(const std::string& key, double time) {
        editor.lastKey = time;
        auto& line = editor.lines[static_cast<size_t>(editor.caretLine)];
        const int before = editor.caretLine;
        if (key == "\n") {
            // The new line keeps the indent, one step deeper after an opening brace.
            const size_t indent = line.find_first_not_of(' ') == std::string::npos
                                      ? line.size()
                                      : line.find_first_not_of(' ');
            std::string next = line.substr(editor.caretColumn);
            line.erase(editor.caretColumn);
            const bool opens = !line.empty() && line.back() == '{';
            const std::string prefix(indent + (opens ? 4 : 0), ' ');
            editor.lines.insert(editor.lines.begin() + editor.caretLine + 1, prefix + next);
            ++editor.caretLine;
            editor.caretColumn = prefix.size();
            redrawEditorLines(before, visibleEditorLines() - 1);
        } else {
            if (key == "}" && line.find_first_not_of(' ') == std::string::npos &&
                editor.caretColumn >= 4) {
                line.erase(editor.caretColumn - 4, 4);
                editor.caretColumn -= 4;
            }
            line.insert(editor.caretColumn, key);
            editor.caretColumn += key.size();
            redrawEditorLines(before, before);
        }
        redrawEditorStatus();
    }

    // ---- The browser ----

    Rect pageViewport() const {
        const Rect& f = script.window(WindowID::browser).frame;
        const double top = f.y + Layout::kTitleBarHeight + Layout::kBrowserToolbarHeight;
        return {f.x, top, f.width, f.y + f.height - top};
    }

    void paintBrowser(cairo_t* cr, const Window& window) {
        const Rect& f = window.layout.frame;
        const Color strip = window.active ? rgb(0xDEE1E6) : rgb(0xE8EAED);
        paintTitleBar(cr, window, strip, rgb(0x202124), false);
        // The open tab, joined to the toolbar below it.
        const double tabTop = f.y + 7;
        roundedRectangle(cr, f.x + 10, tabTop, 250, Layout::kTitleBarHeight, 9);
        setColor(cr, rgb(0xFFFFFF));
        cairo_fill(cr);
        cairo_arc(cr, f.x + 30, tabTop + 16, 7, 0, 2 * std::numbers::pi);
        setColor(cr, rgb(0x3B6FD8));
        cairo_fill(cr);
        drawTextInLine(cr, "clamp — Reference", f.x + 46, tabTop, 32, kUIFont, 13, rgb(0x202124));
        drawTextInLine(cr, "×", f.x + 238, tabTop, 32, kUIFont, 14, rgb(0x5F6368));
        drawTextInLine(cr, "Release notes", f.x + 292, tabTop, 32, kUIFont, 13, rgb(0x5F6368));
        drawTextInLine(cr, "+", f.x + 430, tabTop, 32, kUIFont, 18, rgb(0x5F6368));
        // Toolbar with the address.
        const Rect toolbar{f.x, f.y + Layout::kTitleBarHeight, f.width,
                           Layout::kBrowserToolbarHeight};
        fillRect(cr, toolbar, rgb(0xFFFFFF));
        fillRect(cr, {toolbar.x, toolbar.y + toolbar.height - 1, toolbar.width, 1}, rgb(0xDADCE0));
        const double middle = toolbar.y + toolbar.height / 2;
        setColor(cr, rgb(0x5F6368));
        cairo_set_line_width(cr, 2);
        cairo_move_to(cr, f.x + 28, middle - 6);
        cairo_line_to(cr, f.x + 22, middle);
        cairo_line_to(cr, f.x + 28, middle + 6);
        cairo_move_to(cr, f.x + 22, middle);
        cairo_line_to(cr, f.x + 34, middle);
        cairo_stroke(cr);
        setColor(cr, rgb(0xBDC1C6));
        cairo_move_to(cr, f.x + 58, middle - 6);
        cairo_line_to(cr, f.x + 64, middle);
        cairo_line_to(cr, f.x + 58, middle + 6);
        cairo_move_to(cr, f.x + 52, middle);
        cairo_line_to(cr, f.x + 64, middle);
        cairo_stroke(cr);
        setColor(cr, rgb(0x5F6368));
        cairo_arc(cr, f.x + 92, middle, 6.5, -0.4, 1.5 * std::numbers::pi);
        cairo_stroke(cr);
        roundedRectangle(cr, f.x + 118, middle - 15, f.width - 190, 30, 15);
        setColor(cr, rgb(0xF1F3F4));
        cairo_fill(cr);
        setColor(cr, rgb(0x5F6368));
        cairo_new_path(cr);
        cairo_set_line_width(cr, 1.6);
        cairo_arc(cr, f.x + 140, middle - 2, 3.5, std::numbers::pi, 2 * std::numbers::pi);
        cairo_stroke(cr);
        roundedRectangle(cr, f.x + 135, middle - 2, 10, 8, 1.5);
        cairo_fill(cr);
        drawTextInLine(cr,
                       "<span foreground=\"#202124\">docs.example.org</span>"
                       "<span foreground=\"#5F6368\">/cpp/algorithm/clamp</span>",
                       f.x + 156, middle - 15, 30, kUIFont, 14, rgb(0x202124), PANGO_WEIGHT_NORMAL,
                       true);
        cairo_arc(cr, f.x + f.width - 38, middle, 12, 0, 2 * std::numbers::pi);
        setColor(cr, rgb(0x8E6CEF));
        cairo_fill(cr);
        drawTextInLine(cr, "M", f.x + f.width - 43, middle - 12, 24, kUIFont, 13, rgb(0xFFFFFF),
                       PANGO_WEIGHT_BOLD);
        paintPageViewport(cr);
    }

    // The visible part of the page, at the current scroll offset.
    void paintPageViewport(cairo_t* cr) {
        const Rect viewport = pageViewport();
        cairo_save(cr);
        cairo_rectangle(cr, viewport.x, viewport.y, viewport.width, viewport.height);
        cairo_clip(cr);
        // The page surface is in picture pixels: place it without scaling.
        cairo_identity_matrix(cr);
        const Window& browser = window(WindowID::browser);
        const PixelRect view = toPixels(viewport);
        cairo_translate(cr, -browser.bounds.x, -browser.bounds.y);
        cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
        cairo_set_source_surface(cr, page.get(), view.x, view.y - pageOffset);
        cairo_paint(cr);
        // The column of contents stays where it is while the article scrolls.
        const int column = static_cast<int>(std::lround(kPageContentsWidth * scale));
        cairo_rectangle(cr, view.x, view.y, column, view.height);
        cairo_clip(cr);
        cairo_set_source_surface(cr, page.get(), view.x, view.y);
        cairo_paint(cr);
        cairo_restore(cr);
    }

    void paintPage() {
        const Rect viewport = pageViewport();
        pageHeight = 2500;
        page = makeSurface(static_cast<int>(std::ceil(viewport.width * scale)),
                           static_cast<int>(std::ceil(pageHeight * scale)));
        Context context(cairo_create(page.get()));
        cairo_t* cr = context.get();
        cairo_scale(cr, scale, scale);
        setColor(cr, rgb(0xFFFFFF));
        cairo_paint(cr);
        // A side column of contents, then the article.
        fillRect(cr, {0, 0, kPageContentsWidth - 1, pageHeight}, rgb(0xF8F9FA));
        fillRect(cr, {kPageContentsWidth - 1, 0, 1, pageHeight}, rgb(0xE3E5E8));
        double y = 34;
        drawText(cr, "Contents", 26, y, kUIFont, 13, rgb(0x5F6368), PANGO_WEIGHT_SEMIBOLD);
        y += 30;
        constexpr std::array<const char*, 7> kContents{
            "Parameters", "Return value", "Complexity", "Possible implementation",
            "Notes",      "Examples",     "See also"};
        for (const char* entry : kContents) {
            drawText(cr, entry, 26, y, kUIFont, 13.5, rgb(0x3B6FD8));
            y += 26;
        }
        const double left = 262;
        const double column = 690;
        y = 30;
        drawText(cr, "C++  ›  Algorithms library  ›  clamp", left, y, kUIFont, 13, rgb(0x5F6368));
        y += 40;
        y += drawText(cr, "std::clamp", left, y, kUIFont, 34, rgb(0x202124), PANGO_WEIGHT_BOLD)
                 .height +
             6;
        y += drawText(cr,
                      "Defined in header <span font_family=\"DejaVu Sans Mono\" "
                      "foreground=\"#188038\">&lt;algorithm&gt;</span>",
                      left, y, kUIFont, 15, rgb(0x5F6368), PANGO_WEIGHT_NORMAL, -1, true)
                 .height +
             22;
        y = codeBlock(cr, left, y, column,
                      {"template< class T >", "constexpr const T& clamp( const T& v, const T& lo,",
                       "                          const T& hi );", "",
                       "template< class T, class Compare >",
                       "constexpr const T& clamp( const T& v, const T& lo,",
                       "                          const T& hi, Compare comp );"});
        y = paragraph(cr, left, y + 18, column,
                      "If the value of <tt>v</tt> is within <tt>[lo, hi]</tt>, returns "
                      "<tt>v</tt>; otherwise returns the nearest boundary. The behaviour is "
                      "undefined if <tt>lo</tt> is greater than <tt>hi</tt>.");
        y = heading(cr, left, y + 10, "Parameters");
        y = paragraph(cr, left, y, column,
                      "<b>v</b> — the value to clamp\n<b>lo, hi</b> — the boundaries to clamp "
                      "<tt>v</tt> to\n<b>comp</b> — comparison function object which returns "
                      "<tt>true</tt> if the first argument is less than the second");
        y = heading(cr, left, y + 10, "Return value");
        y = paragraph(cr, left, y, column,
                      "Reference to <tt>lo</tt> if <tt>v</tt> is less than <tt>lo</tt>, "
                      "reference to <tt>hi</tt> if <tt>hi</tt> is less than <tt>v</tt>, "
                      "otherwise reference to <tt>v</tt>.");
        y = heading(cr, left, y + 10, "Complexity");
        y = paragraph(cr, left, y, column,
                      "At most two comparisons. Capturing the result by reference produces a "
                      "dangling reference if one of the parameters is a temporary and that "
                      "parameter is returned.");
        y = heading(cr, left, y + 10, "Possible implementation");
        y = codeBlock(cr, left, y, column,
                      {"template<class T>", "constexpr const T& clamp(const T& v, const T& lo,",
                       "                         const T& hi)", "{",
                       "    return clamp(v, lo, hi, less{});", "}"});
        y = heading(cr, left, y + 24, "Notes");
        y = paragraph(cr, left, y, column,
                      "Capturing the result of <tt>clamp</tt> by reference is safe only while "
                      "all three arguments outlive it. For floating-point values, a NaN passed "
                      "as <tt>v</tt> is returned unchanged, and NaN boundaries make the result "
                      "unspecified.");
        y = heading(cr, left, y + 10, "Examples");
        y = codeBlock(cr, left, y, column,
                      {"#include <algorithm>", "#include <cstdint>", "#include <iostream>", "",
                       "int main()", "{",
                       "    for (const int v : {-129, -128, -1, 0, 42, 127, 128, 255, 256})",
                       "        std::cout << v << \" -> \"",
                       "                  << std::clamp(v, INT8_MIN, INT8_MAX) << '\\n';", "}"});
        y = paragraph(cr, left, y + 14, column, "Output:");
        y = codeBlock(cr, left, y, column,
                      {"-129 -> -128", "-128 -> -128", "  -1 -> -1", "   0 -> 0", "  42 -> 42",
                       " 127 -> 127", " 128 -> 127", " 255 -> 127", " 256 -> 127"});
        y = heading(cr, left, y + 24, "See also");
        y = paragraph(cr, left, y, column,
                      "<span foreground=\"#3B6FD8\">min</span> — returns the smaller of the "
                      "given values\n<span foreground=\"#3B6FD8\">max</span> — returns the "
                      "greater of the given values\n<span foreground=\"#3B6FD8\">in_range</span> "
                      "— checks if an integer value is in the range of a given type");
        pageHeight = std::max(y + 60, pageViewport().height);
    }

    static double heading(cairo_t* cr, double x, double y, const char* text) {
        y += drawText(cr, text, x, y, kUIFont, 22, rgb(0x202124), PANGO_WEIGHT_SEMIBOLD).height;
        fillRect(cr, {x, y + 6, 690, 1}, rgb(0xE3E5E8));
        return y + 18;
    }

    static double paragraph(cairo_t* cr, double x, double y, double width, const char* markup) {
        TextLayout layout = makeLayout(cr, kUIFont, 16);
        pango_layout_set_width(layout.get(), static_cast<int>(width * PANGO_SCALE));
        pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD);
        pango_layout_set_spacing(layout.get(), 7 * PANGO_SCALE);
        const std::string text = std::string("<span>") + markup + "</span>";
        std::string withMono;
        // <tt> in the text means code.
        for (size_t i = 0; i < text.size();) {
            if (text.compare(i, 4, "<tt>") == 0) {
                withMono += "<span font_family=\"DejaVu Sans Mono\" size=\"90%\" "
                            "foreground=\"#C5221F\">";
                i += 4;
            } else if (text.compare(i, 5, "</tt>") == 0) {
                withMono += "</span>";
                i += 5;
            } else {
                withMono.push_back(text[i++]);
            }
        }
        pango_layout_set_markup(layout.get(), withMono.c_str(), -1);
        setColor(cr, rgb(0x3C4043));
        cairo_move_to(cr, x, y);
        pango_cairo_show_layout(cr, layout.get());
        return y + layoutSize(layout.get()).height + 14;
    }

    static double codeBlock(cairo_t* cr, double x, double y, double width,
                            const std::vector<std::string_view>& lines) {
        const double lineHeight = 22;
        const double height = lines.size() * lineHeight + 24;
        roundedRectangle(cr, x, y, width, height, 6);
        setColor(cr, rgb(0xF6F8FA));
        cairo_fill_preserve(cr);
        setColor(cr, rgb(0xE1E4E8));
        cairo_set_line_width(cr, 1);
        cairo_stroke(cr);
        double line = y + 12;
        for (const auto text : lines) {
            std::string markup = codeMarkup(text);
            // Lighter colours for a light page.
            for (const auto& [from, to] :
                 std::initializer_list<std::pair<std::string_view, std::string_view>>{
                     {"#ABB2BF", "#24292E"},
                     {"#C678DD", "#A626A4"},
                     {"#E5C07B", "#986801"},
                     {"#61AFEF", "#4078F2"},
                     {"#98C379", "#50A14F"},
                     {"#D19A66", "#986801"},
                     {"#7F848E", "#A0A1A7"}}) {
                for (size_t at = markup.find(from); at != std::string::npos;
                     at = markup.find(from, at + to.size())) {
                    markup.replace(at, from.size(), to);
                }
            }
            drawTextInLine(cr, markup, x + 16, line, lineHeight, kMonoFont, 14, rgb(0x24292E),
                           PANGO_WEIGHT_NORMAL, true);
            line += lineHeight;
        }
        return y + height + 8;
    }

    int pageOffsetAt(double time) const {
        double offset = 0;
        for (const auto& notch : script.notches) {
            if (notch.time > time) {
                break;
            }
            // Each notch glides the page smoothly, as browsers scroll.
            offset += notch.pixels * easeOut((time - notch.time) / 0.22);
        }
        offset = std::clamp(offset, 0.0, std::max(0.0, pageHeight - pageViewport().height));
        return static_cast<int>(std::lround(offset * scale));
    }

    // ---- The terminal ----

    Rect terminalLineRect(int line) const {
        const Rect& f = script.window(WindowID::terminal).frame;
        return {f.x,
                f.y + Layout::kTitleBarHeight + Layout::kTerminalPadding +
                    line * Layout::kTerminalLineHeight,
                f.width, Layout::kTerminalLineHeight};
    }

    int terminalRows() const {
        const Rect& f = script.window(WindowID::terminal).frame;
        return static_cast<int>(
            (f.height - Layout::kTitleBarHeight - 2 * Layout::kTerminalPadding) /
            Layout::kTerminalLineHeight);
    }

    void paintTerminal(cairo_t* cr, const Window& window) {
        fillRect(cr, window.layout.frame, Palette::kTerminalBackground);
        paintTitleBar(cr, window, rgb(0x2A2C33), rgb(0xE8E8EA));
        for (int row = 0; row < terminalRows(); ++row) {
            paintTerminalLine(cr, row);
        }
    }

    // The first line shown: the terminal scrolls when its lines fill it.
    int terminalFirstLine() const {
        return std::max(0, static_cast<int>(terminal.lines.size()) - terminalRows());
    }

    void paintTerminalLine(cairo_t* cr, int row) {
        const Rect rect = terminalLineRect(row);
        fillRect(cr, rect, Palette::kTerminalBackground);
        const size_t index = static_cast<size_t>(terminalFirstLine()) + static_cast<size_t>(row);
        if (index >= terminal.lines.size()) {
            return;
        }
        const std::string& text = terminal.lines[index];
        const std::string& prompt = script.terminalPrompt;
        std::string markup;
        if (text.starts_with(prompt)) {
            const size_t colon = prompt.find(':');
            markup =
                "<span foreground=\"#98C379\" weight=\"bold\">" + escaped(prompt.substr(0, colon)) +
                "</span>:<span foreground=\"#61AFEF\" "
                "weight=\"bold\">" +
                escaped(prompt.substr(colon + 1, prompt.size() - colon - 3)) + "</span>" +
                escaped(prompt.substr(prompt.size() - 2)) + escaped(text.substr(prompt.size()));
        } else if (text.find("tests passed") != std::string::npos) {
            markup = "<span foreground=\"#98C379\" weight=\"bold\">" + escaped(text) + "</span>";
        } else {
            markup = escaped(text);
        }
        const double x = rect.x + Layout::kTerminalPadding;
        drawTextInLine(cr, markup, x, rect.y, rect.height, kMonoFont, Layout::kTerminalFontSize,
                       Palette::kTerminalText, PANGO_WEIGHT_NORMAL, true);
        if (index + 1 == terminal.lines.size() && terminal.caretShown &&
            window(WindowID::terminal).active) {
            const double caretX =
                x + textOffset(cr, text, text.size(), kMonoFont, Layout::kTerminalFontSize);
            fillRect(cr, {caretX, rect.y + 2, 8.4, rect.height - 4}, rgb(0xD7DAE0, 0.9));
        }
    }

    void redrawTerminal(bool all) {
        Window& window = this->window(WindowID::terminal);
        Context context = windowContext(window);
        const int last = static_cast<int>(terminal.lines.size()) - 1 - terminalFirstLine();
        for (int row = all ? 0 : std::max(0, last - 1); row <= std::min(last, terminalRows() - 1);
             ++row) {
            paintTerminalLine(context.get(), row);
            addDamage(terminalLineRect(row));
        }
    }

    void addTerminalLine(const std::string& text) {
        const int firstBefore = terminalFirstLine();
        terminal.lines.push_back(text);
        redrawTerminal(firstBefore != terminalFirstLine());
    }

    // ---- Events ----

    // The clicked window comes to the front and takes the focus from the one that had it.
    void raise(WindowID id) {
        auto it = std::find_if(windows.begin(), windows.end(),
                               [id](const Window& w) { return w.layout.id == id; });
        std::rotate(it, it + 1, windows.end());
        for (auto& window : windows) {
            const bool active = window.layout.id == id;
            if (window.active != active) {
                window.active = active;
                paintWindow(window);
            }
        }
        addDamage(windows.back().bounds);
    }

    void applyEvents(double time) {
        // Clicks and keys in the order they happen.
        while (true) {
            const double clickTime =
                nextClick < script.clicks.size() ? script.clicks[nextClick].time : INFINITY;
            const double keyTime =
                nextKey < script.keys.size() ? script.keys[nextKey].time : INFINITY;
            const double outputTime = nextOutput < script.terminalOutput.size()
                                          ? script.terminalOutput[nextOutput].time
                                          : INFINITY;
            const double next = std::min({clickTime, keyTime, outputTime});
            if (next > time) {
                break;
            }
            if (next == clickTime) {
                const Click& click = script.clicks[nextClick++];
                raise(click.window);
                if (click.window == WindowID::editor) {
                    editor.lastKey = click.time;
                    editor.caretShown = true;
                    redrawEditorLines(editor.caretLine, editor.caretLine);
                    redrawEditorStatus();
                } else if (click.window == WindowID::terminal) {
                    terminal.lastKey = click.time;
                    terminal.caretShown = true;
                    redrawTerminal(false);
                }
            } else if (next == keyTime) {
                const Keystroke& key = script.keys[nextKey++];
                if (key.window == WindowID::editor) {
                    typeInEditor(key.text, key.time);
                } else {
                    terminal.lastKey = key.time;
                    if (key.text == "\n") {
                        addTerminalLine("");
                    } else {
                        terminal.lines.back() += key.text;
                        redrawTerminal(false);
                    }
                }
            } else {
                const TerminalLine& line = script.terminalOutput[nextOutput++];
                terminal.lines.back() = line.text;
                if (line.text == script.terminalPrompt) {
                    terminal.lastKey = line.time;
                    redrawTerminal(false);
                } else {
                    addTerminalLine("");
                }
            }
        }
        // Carets blink where they have the focus.
        const bool editorCaret =
            editorFocused() && nextClick > 0 && caretVisible(time, editor.lastKey);
        if (editorCaret != editor.caretShown) {
            editor.caretShown = editorCaret;
            redrawEditorLines(editor.caretLine, editor.caretLine);
        }
        const bool terminalCaret =
            window(WindowID::terminal).active && caretVisible(time, terminal.lastKey);
        if (terminalCaret != terminal.caretShown) {
            terminal.caretShown = terminalCaret;
            redrawTerminal(false);
        }
        const int offset = pageOffsetAt(time);
        if (offset != pageOffset) {
            pageOffset = offset;
            Context context = windowContext(window(WindowID::browser));
            paintPageViewport(context.get());
            addDamage(pageViewport());
        }
    }

    // ---- Putting the picture together ----

    void composite() {
        cairo_t* cr = pictureContext.get();
        for (const PixelRect& region : damage) {
            cairo_save(cr);
            cairo_rectangle(cr, region.x, region.y, region.width, region.height);
            cairo_clip(cr);
            // Start at the top-most window that covers the region on its own.
            size_t first = 0;
            bool covered = false;
            for (size_t i = windows.size(); i-- > 0;) {
                if (windows[i].opaque.contains(region)) {
                    first = i;
                    covered = true;
                    break;
                }
            }
            if (!covered) {
                cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
                cairo_set_source_surface(cr, desktop.get(), 0, 0);
                cairo_paint(cr);
            }
            for (size_t i = first; i < windows.size(); ++i) {
                const Window& window = windows[i];
                if (!window.bounds.intersects(region)) {
                    continue;
                }
                cairo_set_operator(cr, covered && i == first ? CAIRO_OPERATOR_SOURCE
                                                             : CAIRO_OPERATOR_OVER);
                cairo_set_source_surface(cr, window.surface.get(), window.bounds.x,
                                         window.bounds.y);
                cairo_paint(cr);
            }
            cairo_restore(cr);
        }
        cairo_surface_flush(picture.get());
        for (const PixelRect& region : damage) {
            convertToVideo(region);
        }
        damage.clear();
    }

    // BGRA to limited-range YUV with the matrix the frame's size calls for, chroma averaged
    // over each 2x2 block; the region grows to even bounds.
    void convertToVideo(PixelRect region) {
        const int left = region.x / 2 * 2;
        const int top = region.y / 2 * 2;
        const int right = std::min(width, (region.right() + 1) / 2 * 2);
        const int bottom = std::min(height, (region.bottom() + 1) / 2 * 2);
        const bool hd = height >= 720;
        // Weights of R, G, B scaled by 2^16, for Y (16...235) and for Cb, Cr (16...240).
        const auto fixed = [](double value) {
            return static_cast<int>(std::lround(value * 65536));
        };
        const double kr = hd ? 0.2126 : 0.299;
        const double kb = hd ? 0.0722 : 0.114;
        const double kg = 1 - kr - kb;
        const int yr = fixed(kr * 219 / 255);
        const int yg = fixed(kg * 219 / 255);
        const int yb = fixed(kb * 219 / 255);
        const int ur = fixed(-kr / (2 * (1 - kb)) * 224 / 255);
        const int ug = fixed(-kg / (2 * (1 - kb)) * 224 / 255);
        const int ub = fixed(0.5 * 224 / 255);
        const int vr = ub;
        const int vg = fixed(-kg / (2 * (1 - kr)) * 224 / 255);
        const int vb = fixed(-kb / (2 * (1 - kr)) * 224 / 255);
        const std::uint8_t* pixels = cairo_image_surface_get_data(picture.get());
        const int stride = cairo_image_surface_get_stride(picture.get());
        for (int y = top; y < bottom; y += 2) {
            const std::uint8_t* rows[2] = {
                pixels + static_cast<ptrdiff_t>(y) * stride,
                pixels + static_cast<ptrdiff_t>(std::min(y + 1, height - 1)) * stride};
            std::uint8_t* luma[2] = {video.row(0, y), video.row(0, std::min(y + 1, height - 1))};
            std::uint8_t* cb = video.row(1, y / 2);
            std::uint8_t* cr = video.row(2, y / 2);
            for (int x = left; x < right; x += 2) {
                int sumR = 0;
                int sumG = 0;
                int sumB = 0;
                for (int dy = 0; dy < 2; ++dy) {
                    for (int dx = 0; dx < 2 && x + dx < width; ++dx) {
                        const std::uint8_t* p = rows[dy] + 4 * static_cast<ptrdiff_t>(x + dx);
                        const int b = p[0];
                        const int g = p[1];
                        const int r = p[2];
                        luma[dy][x + dx] = static_cast<std::uint8_t>(
                            16 + ((yr * r + yg * g + yb * b + 32768) >> 16));
                        sumR += r;
                        sumG += g;
                        sumB += b;
                    }
                }
                // Sums of four: shift two more places.
                const int u = (ur * sumR + ug * sumG + ub * sumB + (1 << 17)) >> 18;
                const int v = (vr * sumR + vg * sumG + vb * sumB + (1 << 17)) >> 18;
                cb[x / 2] = static_cast<std::uint8_t>(std::clamp(128 + u, 16, 240));
                cr[x / 2] = static_cast<std::uint8_t>(std::clamp(128 + v, 16, 240));
            }
        }
    }
};

DesktopPainter::DesktopPainter(const SampleScript& script, int width, int height)
    : state_(std::make_unique<State>(script, width, height)) {
    State& s = *state_;
    s.editor.lines = script.editorLines;
    s.editor.caretLine = script.editorCaretLine;
    s.terminal.lines = {script.terminalPrompt + "git status --short",
                        " M include/clamp.hpp",
                        script.terminalPrompt + "cmake --preset default",
                        "-- The CXX compiler identification is GNU 12.2.0",
                        "-- Configuring done",
                        "-- Generating done",
                        "-- Build files have been written to: build",
                        script.terminalPrompt};
    s.paintDesktop();
    s.paintPage();
    s.makeWindows();
    for (auto& window : s.windows) {
        s.paintWindow(window);
    }
    s.damage = {{0, 0, width, height}};
    s.video.allocate(PixelLayout::yuv420p, width, height);
}

DesktopPainter::~DesktopPainter() = default;

void DesktopPainter::advance(double time) {
    state_->applyEvents(time);
    state_->composite();
}

const std::uint8_t* DesktopPainter::pixels() const {
    return cairo_image_surface_get_data(state_->picture.get());
}

int DesktopPainter::stride() const {
    return cairo_image_surface_get_stride(state_->picture.get());
}

int DesktopPainter::width() const {
    return state_->width;
}

int DesktopPainter::height() const {
    return state_->height;
}

const VideoFrame& DesktopPainter::videoFrame() const {
    return state_->video;
}

} // namespace orvelle::SampleTake
