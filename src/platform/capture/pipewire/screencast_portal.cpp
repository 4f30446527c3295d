#include "platform/capture/pipewire/screencast_portal.h"

#include "core/error.h"
#include "core/log.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>

namespace orvelle {

namespace {

constexpr const char* kPortalService = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";
constexpr const char* kScreenCast = "org.freedesktop.portal.ScreenCast";

constexpr uint32_t kSourceMonitor = 1;
constexpr uint32_t kSourceWindow = 2;
constexpr uint32_t kCursorHidden = 1;
constexpr uint32_t kCursorMetadata = 4;

const char* const kNoPortal =
    "Recording on Wayland needs the desktop portal's screen sharing (xdg-desktop-portal and "
    "the portal of your desktop), and none answers on the session bus. Install them, log in "
    "again and retry.";

std::string nextToken() {
    static std::atomic<int> counter = 0;
    return "orvelle" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

[[noreturn]] void throwCallError(GError* error) {
    const bool missing = error != nullptr && error->domain == G_DBUS_ERROR &&
                         (error->code == G_DBUS_ERROR_SERVICE_UNKNOWN ||
                          error->code == G_DBUS_ERROR_UNKNOWN_METHOD ||
                          error->code == G_DBUS_ERROR_UNKNOWN_INTERFACE ||
                          error->code == G_DBUS_ERROR_UNKNOWN_OBJECT ||
                          error->code == G_DBUS_ERROR_NAME_HAS_NO_OWNER);
    std::string message = error != nullptr ? error->message : "unknown error";
    if (error != nullptr) {
        g_error_free(error);
    }
    if (missing) {
        throw Error(kNoPortal);
    }
    throw Error("The desktop's screen-sharing portal failed (" + message + ").");
}

struct Response {
    bool done = false;
    uint32_t code = 2;
    GVariant* results = nullptr;
};

void onResponse(GDBusConnection*, const char*, const char*, const char*, const char*,
                GVariant* parameters, gpointer data) {
    auto* response = static_cast<Response*>(data);
    if (response->done) {
        return;
    }
    g_variant_get(parameters, "(u@a{sv})", &response->code, &response->results);
    response->done = true;
}

gboolean onTimeout(gpointer data) {
    *static_cast<bool*>(data) = true;
    return G_SOURCE_REMOVE;
}

} // namespace

struct ScreenCastPortalSession::State {
    GDBusConnection* connection = nullptr;
    std::string sender; // the unique name as the portal spells it in request paths
    std::string sessionHandle;
    int fd = -1;
    std::vector<ScreenCastStreamInfo> streams;
    bool metadata = false;

    ~State() {
        if (connection != nullptr && !sessionHandle.empty()) {
            GVariant* closed = g_dbus_connection_call_sync(
                connection, kPortalService, sessionHandle.c_str(), "org.freedesktop.portal.Session",
                "Close", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 2000, nullptr, nullptr);
            if (closed != nullptr) {
                g_variant_unref(closed);
            }
        }
        if (fd >= 0) {
            close(fd);
        }
        if (connection != nullptr) {
            g_dbus_connection_close_sync(connection, nullptr, nullptr);
            g_object_unref(connection);
        }
    }

    void connect() {
        GError* error = nullptr;
        gchar* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error);
        if (address == nullptr) {
            std::string message = error != nullptr ? error->message : "";
            g_clear_error(&error);
            throw Error("There is no desktop session bus to ask for screen sharing (" + message +
                        ").");
        }
        // A connection of our own, apart from any the application's toolkit holds.
        connection = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
        g_free(address);
        if (connection == nullptr) {
            std::string message = error != nullptr ? error->message : "";
            g_clear_error(&error);
            throw Error("Could not connect to the desktop session bus (" + message + ").");
        }
        sender = g_dbus_connection_get_unique_name(connection) + 1;
        for (char& c : sender) {
            if (c == '.') {
                c = '_';
            }
        }
    }

    uint32_t property(const char* name) {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            connection, kPortalService, kPortalPath, "org.freedesktop.DBus.Properties", "Get",
            g_variant_new("(ss)", kScreenCast, name), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE,
            10000, nullptr, &error);
        if (reply == nullptr) {
            throwCallError(error);
        }
        GVariant* value = nullptr;
        g_variant_get(reply, "(v)", &value);
        const uint32_t result =
            g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32) ? g_variant_get_uint32(value) : 0;
        g_variant_unref(value);
        g_variant_unref(reply);
        return result;
    }

    // Calls a portal method whose answer comes later as a Response signal on the request
    // object named by the handle token; returns the results.
    GVariant* request(const char* method, GVariant* parameters, const std::string& token,
                      std::chrono::seconds timeout) {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        Response response;
        const std::string path = std::string(kPortalPath) + "/request/" + sender + "/" + token;
        const guint subscription = g_dbus_connection_signal_subscribe(
            connection, kPortalService, "org.freedesktop.portal.Request", "Response", path.c_str(),
            nullptr, G_DBUS_SIGNAL_FLAGS_NONE, onResponse, &response, nullptr);
        const auto finish = [&] {
            g_dbus_connection_signal_unsubscribe(connection, subscription);
            g_main_context_pop_thread_default(context);
            g_main_context_unref(context);
        };
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            connection, kPortalService, kPortalPath, kScreenCast, method, parameters,
            G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        if (reply == nullptr) {
            finish();
            throwCallError(error);
        }
        g_variant_unref(reply);
        bool timedOut = false;
        GSource* timer = g_timeout_source_new_seconds(static_cast<guint>(timeout.count()));
        g_source_set_callback(timer, onTimeout, &timedOut, nullptr);
        g_source_attach(timer, context);
        while (!response.done && !timedOut) {
            g_main_context_iteration(context, TRUE);
        }
        g_source_destroy(timer);
        g_source_unref(timer);
        finish();
        if (!response.done) {
            throw Error("The desktop's screen-sharing dialog did not answer in time.");
        }
        if (response.code != 0) {
            if (response.results != nullptr) {
                g_variant_unref(response.results);
            }
            throw Error(response.code == 1 ? "Screen sharing was cancelled in the desktop's dialog."
                                           : "The desktop did not allow screen sharing.");
        }
        return response.results;
    }

    static GVariant* options(const std::string& token,
                             const std::function<void(GVariantBuilder&)>& more = {}) {
        GVariantBuilder builder;
        g_variant_builder_init(&builder, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&builder, "{sv}", "handle_token",
                              g_variant_new_string(token.c_str()));
        if (more) {
            more(builder);
        }
        return g_variant_builder_end(&builder);
    }
};

ScreenCastPortalSession::ScreenCastPortalSession() : state_(std::make_unique<State>()) {}

ScreenCastPortalSession::~ScreenCastPortalSession() = default;

std::unique_ptr<ScreenCastPortalSession>
ScreenCastPortalSession::open(ScreenCastSourceTypes types, std::chrono::seconds timeout) {
    std::unique_ptr<ScreenCastPortalSession> session(new ScreenCastPortalSession());
    State& s = *session->state_;
    s.connect();
    const uint32_t available = s.property("AvailableSourceTypes");
    const uint32_t cursorModes = s.property("AvailableCursorModes");
    uint32_t wanted = (types.monitor ? kSourceMonitor : 0) | (types.window ? kSourceWindow : 0);
    if ((wanted & available) == 0) {
        throw Error(types.window ? "This desktop cannot share single windows; record a display "
                                   "instead."
                                 : "This desktop cannot share displays.");
    }
    wanted &= available;
    s.metadata = (cursorModes & kCursorMetadata) != 0;
    if (!s.metadata) {
        logWarning("capture", "the desktop portal cannot send the pointer as data; the take "
                              "will have no pointer positions");
    }

    // CreateSession, then SelectSources, then Start (the dialog), then the PipeWire remote.
    const std::string createToken = nextToken();
    const std::string sessionToken = nextToken();
    GVariant* created =
        s.request("CreateSession",
                  g_variant_new("(@a{sv})",
                                State::options(createToken,
                                               [&](GVariantBuilder& builder) {
                                                   g_variant_builder_add(
                                                       &builder, "{sv}", "session_handle_token",
                                                       g_variant_new_string(sessionToken.c_str()));
                                               })),
                  createToken, std::chrono::seconds(30));
    const gchar* handle = nullptr;
    if (g_variant_lookup(created, "session_handle", "&s", &handle)) {
        s.sessionHandle = handle;
    }
    g_variant_unref(created);
    if (s.sessionHandle.empty()) {
        throw Error("The desktop's screen-sharing portal made no session.");
    }

    const std::string selectToken = nextToken();
    GVariant* selected = s.request(
        "SelectSources",
        g_variant_new("(o@a{sv})", s.sessionHandle.c_str(),
                      State::options(selectToken,
                                     [&](GVariantBuilder& builder) {
                                         g_variant_builder_add(&builder, "{sv}", "types",
                                                               g_variant_new_uint32(wanted));
                                         g_variant_builder_add(&builder, "{sv}", "multiple",
                                                               g_variant_new_boolean(FALSE));
                                         g_variant_builder_add(
                                             &builder, "{sv}", "cursor_mode",
                                             g_variant_new_uint32(s.metadata ? kCursorMetadata
                                                                             : kCursorHidden));
                                     })),
        selectToken, std::chrono::seconds(30));
    g_variant_unref(selected);

    const std::string startToken = nextToken();
    GVariant* started = s.request(
        "Start",
        g_variant_new("(os@a{sv})", s.sessionHandle.c_str(), "", State::options(startToken)),
        startToken, timeout);
    GVariant* streams = g_variant_lookup_value(started, "streams", G_VARIANT_TYPE("a(ua{sv})"));
    if (streams != nullptr) {
        GVariantIter iterator;
        g_variant_iter_init(&iterator, streams);
        uint32_t node = 0;
        GVariant* properties = nullptr;
        while (g_variant_iter_next(&iterator, "(u@a{sv})", &node, &properties)) {
            ScreenCastStreamInfo info;
            info.nodeID = node;
            int x = 0;
            int y = 0;
            int width = 0;
            int height = 0;
            const bool hasPosition = g_variant_lookup(properties, "position", "(ii)", &x, &y);
            if (g_variant_lookup(properties, "size", "(ii)", &width, &height)) {
                info.frame = CaptureRect{hasPosition ? static_cast<double>(x) : 0,
                                         hasPosition ? static_cast<double>(y) : 0,
                                         static_cast<double>(width), static_cast<double>(height)};
            }
            g_variant_lookup(properties, "source_type", "u", &info.sourceType);
            s.streams.push_back(info);
            g_variant_unref(properties);
        }
        g_variant_unref(streams);
    }
    g_variant_unref(started);
    if (s.streams.empty()) {
        throw Error("Nothing was chosen to share.");
    }

    GError* error = nullptr;
    GUnixFDList* fds = nullptr;
    GVariant* remote = g_dbus_connection_call_with_unix_fd_list_sync(
        s.connection, kPortalService, kPortalPath, kScreenCast, "OpenPipeWireRemote",
        g_variant_new("(o@a{sv})", s.sessionHandle.c_str(),
                      g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0)),
        G_VARIANT_TYPE("(h)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &fds, nullptr, &error);
    if (remote == nullptr) {
        throwCallError(error);
    }
    gint32 index = 0;
    g_variant_get(remote, "(h)", &index);
    g_variant_unref(remote);
    s.fd = fds != nullptr ? g_unix_fd_list_get(fds, index, nullptr) : -1;
    if (fds != nullptr) {
        g_object_unref(fds);
    }
    if (s.fd < 0) {
        throw Error("The desktop's screen-sharing portal gave no PipeWire connection.");
    }
    return session;
}

int ScreenCastPortalSession::pipeWireFd() const {
    return state_->fd;
}

const std::vector<ScreenCastStreamInfo>& ScreenCastPortalSession::streams() const {
    return state_->streams;
}

bool ScreenCastPortalSession::pointerIsMetadata() const {
    return state_->metadata;
}

} // namespace orvelle
