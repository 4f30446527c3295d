#include "platform/capture/x11/x11_global_shortcuts.h"

#include "core/log.h"
#include "platform/capture/x11/detail/xcb_connection.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

namespace orvelle {

namespace {

using detail::XcbReply;

// Key symbols (X11/keysymdef.h) that the chords and the modifier lookup need.
constexpr xcb_keysym_t kNumLock = 0xff7f;
constexpr xcb_keysym_t kAltLeft = 0xffe9;
constexpr xcb_keysym_t kAltRight = 0xffea;
constexpr xcb_keysym_t kSuperLeft = 0xffeb;
constexpr xcb_keysym_t kSuperRight = 0xffec;
constexpr xcb_keysym_t kF1 = 0xffbe;
constexpr xcb_keysym_t kPause = 0xff13;
constexpr xcb_keysym_t kScrollLock = 0xff14;
constexpr xcb_keysym_t kSysReq = 0xff15;
constexpr xcb_keysym_t kPrint = 0xff61;

// Qt's portable names of the keys that are not one character.
constexpr std::pair<std::string_view, xcb_keysym_t> kNamedKeys[] = {
    {"Space", 0x20},    {"Esc", 0xff1b},   {"Tab", 0xff09},     {"Backspace", 0xff08},
    {"Return", 0xff0d}, {"Enter", 0xff8d}, {"Ins", 0xff63},     {"Del", 0xffff},
    {"Pause", kPause},  {"Print", kPrint}, {"SysReq", kSysReq}, {"Home", 0xff50},
    {"End", 0xff57},    {"Left", 0xff51},  {"Up", 0xff52},      {"Right", 0xff53},
    {"Down", 0xff54},   {"PgUp", 0xff55},  {"PgDown", 0xff56},  {"ScrollLock", kScrollLock},
    {"Menu", 0xff67},
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) ==
                      std::tolower(static_cast<unsigned char>(y));
           });
}

struct ParsedKeys {
    bool ctrl = false;
    bool shift = false;
    bool alt = false;
    bool meta = false;
    xcb_keysym_t keysym = 0;
};

std::optional<xcb_keysym_t> keysymNamed(std::string_view name) {
    if (name.size() == 1 && name[0] >= 0x20 && name[0] < 0x7f) {
        // Latin-1 keys are their own symbols; a letter is named by its lower case.
        return static_cast<xcb_keysym_t>(std::tolower(static_cast<unsigned char>(name[0])));
    }
    if (name.size() >= 2 && (name[0] == 'F' || name[0] == 'f') &&
        std::all_of(name.begin() + 1, name.end(), [](char c) { return std::isdigit(c) != 0; })) {
        const int number = std::stoi(std::string(name.substr(1)));
        if (number >= 1 && number <= 35) {
            return kF1 + static_cast<xcb_keysym_t>(number - 1);
        }
        return std::nullopt;
    }
    for (const auto& [known, keysym] : kNamedKeys) {
        if (equalsIgnoringCase(name, known)) {
            return keysym;
        }
    }
    return std::nullopt;
}

std::optional<ParsedKeys> parseKeys(std::string_view text) {
    ParsedKeys parsed;
    const std::pair<std::string_view, bool ParsedKeys::*> modifiers[] = {
        {"Ctrl", &ParsedKeys::ctrl},
        {"Shift", &ParsedKeys::shift},
        {"Alt", &ParsedKeys::alt},
        {"Meta", &ParsedKeys::meta},
    };
    for (bool stripped = true; stripped;) {
        stripped = false;
        for (const auto& [name, flag] : modifiers) {
            // "Ctrl++" is Ctrl with the plus key: a modifier needs a key after its '+'.
            if (text.size() > name.size() + 1 && text[name.size()] == '+' &&
                equalsIgnoringCase(text.substr(0, name.size()), name)) {
                parsed.*flag = true;
                text.remove_prefix(name.size() + 1);
                stripped = true;
            }
        }
    }
    const auto keysym = keysymNamed(text);
    if (!keysym) {
        return std::nullopt;
    }
    parsed.keysym = *keysym;
    return parsed;
}

// Keys that type nothing, which may be taken without a modifier.
bool typesNothing(xcb_keysym_t keysym) {
    return (keysym >= kF1 && keysym < kF1 + 35) || keysym == kPause || keysym == kPrint ||
           keysym == kScrollLock || keysym == kSysReq;
}

} // namespace

struct X11GlobalShortcuts::State {
    struct Grab {
        int id = 0;
        uint16_t modifiers = 0;
        xcb_keysym_t keysym = 0;
        std::vector<xcb_keycode_t> keycodes;
    };

    explicit State(const std::string& displayName) : connection(displayName) { readKeyboard(); }

    xcb_connection_t* get() const { return connection.get(); }

    // The keyboard's symbols and which modifier bits Num Lock, Alt and Super are.
    void readKeyboard() {
        const xcb_setup_t* setup = xcb_get_setup(get());
        minKeycode = setup->min_keycode;
        const int count = setup->max_keycode - setup->min_keycode + 1;
        const XcbReply<xcb_get_keyboard_mapping_reply_t> mapping(xcb_get_keyboard_mapping_reply(
            get(), xcb_get_keyboard_mapping(get(), minKeycode, static_cast<uint8_t>(count)),
            nullptr));
        keysyms.clear();
        keysymsPerKeycode = 0;
        if (mapping) {
            keysymsPerKeycode = mapping->keysyms_per_keycode;
            const xcb_keysym_t* symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
            keysyms.assign(symbols,
                           symbols + xcb_get_keyboard_mapping_keysyms_length(mapping.get()));
        }
        numLock = alt = super = 0;
        const XcbReply<xcb_get_modifier_mapping_reply_t> modifierMapping(
            xcb_get_modifier_mapping_reply(get(), xcb_get_modifier_mapping(get()), nullptr));
        if (modifierMapping) {
            const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(modifierMapping.get());
            const int perModifier = modifierMapping->keycodes_per_modifier;
            for (int modifier = 0; modifier < 8; ++modifier) {
                const auto bit = static_cast<uint16_t>(1U << modifier);
                for (int k = 0; k < perModifier; ++k) {
                    for (const xcb_keysym_t keysym : symbolsOf(codes[modifier * perModifier + k])) {
                        if (keysym == kNumLock && numLock == 0) {
                            numLock = bit;
                        } else if ((keysym == kAltLeft || keysym == kAltRight) && alt == 0) {
                            alt = bit;
                        } else if ((keysym == kSuperLeft || keysym == kSuperRight) && super == 0) {
                            super = bit;
                        }
                    }
                }
            }
        }
        // The usual places where the keyboard does not say.
        numLock = numLock != 0 ? numLock : static_cast<uint16_t>(XCB_MOD_MASK_2);
        alt = alt != 0 ? alt : static_cast<uint16_t>(XCB_MOD_MASK_1);
        super = super != 0 ? super : static_cast<uint16_t>(XCB_MOD_MASK_4);
    }

    std::vector<xcb_keysym_t> symbolsOf(xcb_keycode_t keycode) const {
        const int index = keycode - minKeycode;
        if (keycode == 0 || index < 0 || keysymsPerKeycode == 0 ||
            size_t(index + 1) * keysymsPerKeycode > keysyms.size()) {
            return {};
        }
        const auto first = keysyms.begin() + static_cast<ptrdiff_t>(index) * keysymsPerKeycode;
        return {first, first + keysymsPerKeycode};
    }

    std::vector<xcb_keycode_t> keycodesOf(xcb_keysym_t keysym) const {
        std::vector<xcb_keycode_t> codes;
        if (keysymsPerKeycode == 0) {
            return codes;
        }
        for (size_t index = 0; index * keysymsPerKeycode < keysyms.size(); ++index) {
            const auto first = keysyms.begin() + static_cast<ptrdiff_t>(index) * keysymsPerKeycode;
            if (std::find(first, first + keysymsPerKeycode, keysym) != first + keysymsPerKeycode) {
                codes.push_back(static_cast<xcb_keycode_t>(minKeycode + index));
            }
        }
        return codes;
    }

    // The chord as pressed, and with either lock on.
    std::vector<uint16_t> lockVariants(uint16_t modifiers) const {
        std::vector<uint16_t> variants;
        for (const uint16_t locks : {uint16_t(0), uint16_t(XCB_MOD_MASK_LOCK), numLock,
                                     uint16_t(XCB_MOD_MASK_LOCK | numLock)}) {
            const auto variant = static_cast<uint16_t>(modifiers | locks);
            if (std::find(variants.begin(), variants.end(), variant) == variants.end()) {
                variants.push_back(variant);
            }
        }
        return variants;
    }

    // False, holding nothing, when another client has any of the grabs.
    bool grabKeys(const Grab& grab) {
        std::vector<xcb_void_cookie_t> cookies;
        for (const xcb_keycode_t keycode : grab.keycodes) {
            for (const uint16_t modifiers : lockVariants(grab.modifiers)) {
                cookies.push_back(xcb_grab_key_checked(get(), 1, connection.root(), modifiers,
                                                       keycode, XCB_GRAB_MODE_ASYNC,
                                                       XCB_GRAB_MODE_ASYNC));
            }
        }
        bool all = true;
        for (const auto cookie : cookies) {
            const XcbReply<xcb_generic_error_t> error(xcb_request_check(get(), cookie));
            all = all && !error;
        }
        if (!all) {
            ungrabKeys(grab);
        }
        return all;
    }

    void ungrabKeys(const Grab& grab) {
        for (const xcb_keycode_t keycode : grab.keycodes) {
            for (const uint16_t modifiers : lockVariants(grab.modifiers)) {
                xcb_ungrab_key(get(), keycode, connection.root(), modifiers);
            }
        }
        // A round trip, so that the keys are free for any program once this returns.
        const XcbReply<xcb_get_input_focus_reply_t> synced(
            xcb_get_input_focus_reply(get(), xcb_get_input_focus(get()), nullptr));
    }

    // After the keyboard changed: the same chords on their new keys.
    void regrabAll() {
        for (const Grab& grab : grabs) {
            ungrabKeys(grab);
        }
        readKeyboard();
        std::vector<Grab> kept;
        for (Grab grab : grabs) {
            grab.keycodes = keycodesOf(grab.keysym);
            if (!grab.keycodes.empty() && grabKeys(grab)) {
                kept.push_back(std::move(grab));
            } else {
                logWarning("Shortcuts", "a shortcut was lost when the keyboard changed");
            }
        }
        grabs = std::move(kept);
    }

    detail::XcbConnection connection;
    xcb_keycode_t minKeycode = 0;
    int keysymsPerKeycode = 0;
    std::vector<xcb_keysym_t> keysyms;
    uint16_t numLock = 0;
    uint16_t alt = 0;
    uint16_t super = 0;
    std::vector<Grab> grabs;
    // The time of each key's last release: a press at that very time is the keyboard
    // repeating a held key, which sends a release and a press together.
    std::map<xcb_keycode_t, xcb_timestamp_t> lastRelease;
};

X11GlobalShortcuts::X11GlobalShortcuts(const std::string& displayName)
    : state_(std::make_unique<State>(displayName)) {}

X11GlobalShortcuts::~X11GlobalShortcuts() {
    for (const auto& grab : state_->grabs) {
        state_->ungrabKeys(grab);
    }
}

GlobalShortcutGrab X11GlobalShortcuts::grab(int id, const std::string& keys) {
    release(id);
    const auto parsed = parseKeys(keys);
    if (!parsed) {
        return GlobalShortcutGrab::unknownKey;
    }
    if (!parsed->ctrl && !parsed->alt && !parsed->meta && !typesNothing(parsed->keysym)) {
        return GlobalShortcutGrab::needsModifier;
    }
    State::Grab grab{.id = id, .keysym = parsed->keysym};
    grab.modifiers = static_cast<uint16_t>(
        (parsed->shift ? XCB_MOD_MASK_SHIFT : 0) | (parsed->ctrl ? XCB_MOD_MASK_CONTROL : 0) |
        (parsed->alt ? state_->alt : 0) | (parsed->meta ? state_->super : 0));
    grab.keycodes = state_->keycodesOf(grab.keysym);
    if (grab.keycodes.empty()) {
        return GlobalShortcutGrab::unknownKey;
    }
    if (!state_->grabKeys(grab)) {
        return GlobalShortcutGrab::heldElsewhere;
    }
    state_->grabs.push_back(std::move(grab));
    return GlobalShortcutGrab::taken;
}

void X11GlobalShortcuts::release(int id) {
    const auto held = std::find_if(state_->grabs.begin(), state_->grabs.end(),
                                   [id](const State::Grab& grab) { return grab.id == id; });
    if (held != state_->grabs.end()) {
        state_->ungrabKeys(*held);
        state_->grabs.erase(held);
    }
}

int X11GlobalShortcuts::fileDescriptor() const {
    return xcb_get_file_descriptor(state_->get());
}

bool X11GlobalShortcuts::dispatch(const std::function<void(int id)>& onPress) {
    State& state = *state_;
    while (xcb_generic_event_t* next = xcb_poll_for_event(state.get())) {
        const XcbReply<xcb_generic_event_t> event(next);
        switch (event->response_type & 0x7f) {
        case XCB_KEY_PRESS: {
            const auto* key = reinterpret_cast<const xcb_key_press_event_t*>(event.get());
            const auto released = state.lastRelease.find(key->detail);
            if (released != state.lastRelease.end() && released->second == key->time) {
                break;
            }
            const auto modifiers =
                static_cast<uint16_t>(key->state & 0xff & ~(XCB_MOD_MASK_LOCK | state.numLock));
            const auto pressed =
                std::find_if(state.grabs.begin(), state.grabs.end(), [&](const auto& grab) {
                    return grab.modifiers == modifiers &&
                           std::find(grab.keycodes.begin(), grab.keycodes.end(), key->detail) !=
                               grab.keycodes.end();
                });
            if (pressed != state.grabs.end()) {
                // The handler may grab or release: the id is copied first.
                const int id = pressed->id;
                onPress(id);
            }
            break;
        }
        case XCB_KEY_RELEASE: {
            const auto* key = reinterpret_cast<const xcb_key_release_event_t*>(event.get());
            state.lastRelease[key->detail] = key->time;
            break;
        }
        case XCB_MAPPING_NOTIFY: {
            const auto* mapping = reinterpret_cast<const xcb_mapping_notify_event_t*>(event.get());
            if (mapping->request != XCB_MAPPING_POINTER) {
                state.regrabAll();
            }
            break;
        }
        default:
            break;
        }
    }
    return xcb_connection_has_error(state.get()) == 0;
}

} // namespace orvelle
