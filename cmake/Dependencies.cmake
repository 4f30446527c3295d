# Every third-party dependency is found here, once. scripts/bootstrap installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)

pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavutil libswscale libswresample)

# Images: OpenCV core and imgproc (Debian ships no CMake package for these two alone),
# Cairo for shapes and PNG files, Pango for text.
find_path(OPENCV_INCLUDE_DIR opencv2/core.hpp PATH_SUFFIXES opencv4 REQUIRED)
find_library(OPENCV_CORE_LIBRARY opencv_core REQUIRED)
find_library(OPENCV_IMGPROC_LIBRARY opencv_imgproc REQUIRED)
add_library(orvelle_opencv INTERFACE)
target_include_directories(orvelle_opencv SYSTEM INTERFACE ${OPENCV_INCLUDE_DIR})
target_link_libraries(orvelle_opencv INTERFACE ${OPENCV_IMGPROC_LIBRARY} ${OPENCV_CORE_LIBRARY})
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo)
pkg_check_modules(PANGOCAIRO REQUIRED IMPORTED_TARGET pangocairo fontconfig)
# Speech alignment: Unicode folding, the number pattern, model checksums.
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET libutf8proc)
pkg_check_modules(PCRE2 REQUIRED IMPORTED_TARGET libpcre2-8)
pkg_check_modules(LIBCRYPTO REQUIRED IMPORTED_TARGET libcrypto)

if(ORVELLE_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ORVELLE_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()

# Speech: FFTW (double precision) for the mel front end.
pkg_check_modules(FFTW3 REQUIRED IMPORTED_TARGET fftw3)

# ONNX Runtime: a system install (pkg-config or CMake package, 1.21 or newer) wins;
# otherwise scripts/fetch-onnxruntime has put it in third_party/onnxruntime. Only
# platform/onnx uses it: it loads the library when the first session is made, so the
# program starts and says what is wrong when the library is missing or too old.
set(ORVELLE_ONNXRUNTIME_MINIMUM 1.21)
pkg_check_modules(ONNXRUNTIME QUIET libonnxruntime>=${ORVELLE_ONNXRUNTIME_MINIMUM})
if(ONNXRUNTIME_FOUND)
  find_library(ORVELLE_ONNXRUNTIME_LIBRARY NAMES onnxruntime HINTS ${ONNXRUNTIME_LIBRARY_DIRS}
               NO_CACHE REQUIRED)
  set(ORVELLE_ONNXRUNTIME_INCLUDE_DIR ${ONNXRUNTIME_INCLUDE_DIRS})
else()
  find_package(onnxruntime ${ORVELLE_ONNXRUNTIME_MINIMUM} CONFIG QUIET)
  if(onnxruntime_FOUND)
    get_target_property(ORVELLE_ONNXRUNTIME_INCLUDE_DIR onnxruntime::onnxruntime
                        INTERFACE_INCLUDE_DIRECTORIES)
    get_target_property(ORVELLE_ONNXRUNTIME_LIBRARY onnxruntime::onnxruntime LOCATION)
  elseif(EXISTS ${PROJECT_SOURCE_DIR}/third_party/onnxruntime/lib/libonnxruntime.so.1)
    set(ORVELLE_ONNXRUNTIME_INCLUDE_DIR ${PROJECT_SOURCE_DIR}/third_party/onnxruntime/include)
    set(ORVELLE_ONNXRUNTIME_LIBRARY ${PROJECT_SOURCE_DIR}/third_party/onnxruntime/lib/libonnxruntime.so.1)
  else()
    message(FATAL_ERROR "ONNX Runtime was not found. Run scripts/fetch-onnxruntime (or "
                        "scripts/bootstrap), which puts it in third_party/onnxruntime.")
  endif()
endif()
add_library(orvelle_onnxruntime INTERFACE)
target_include_directories(orvelle_onnxruntime SYSTEM INTERFACE ${ORVELLE_ONNXRUNTIME_INCLUDE_DIR})
target_compile_definitions(orvelle_onnxruntime INTERFACE
  ORVELLE_ONNXRUNTIME_LIBRARY="${ORVELLE_ONNXRUNTIME_LIBRARY}"
  ORVELLE_ONNXRUNTIME_MINIMUM="${ORVELLE_ONNXRUNTIME_MINIMUM}"
  ORT_API_MANUAL_INIT)
target_link_libraries(orvelle_onnxruntime INTERFACE ${CMAKE_DL_LIBS})
message(STATUS "ONNX Runtime: ${ORVELLE_ONNXRUNTIME_LIBRARY}")
# Timeline media: FFmpeg's filters (noise reduction) and pitch-preserving tempo change.
pkg_check_modules(FFMPEG_FILTER REQUIRED IMPORTED_TARGET libavfilter)
pkg_check_modules(RUBBERBAND REQUIRED IMPORTED_TARGET rubberband)
# Media: libyuv's vectorised YUV to BGRA for decoded pictures (Debian ships no pkg-config file).
find_path(LIBYUV_INCLUDE_DIR libyuv.h REQUIRED)
find_library(LIBYUV_LIBRARY yuv REQUIRED)
add_library(orvelle_libyuv INTERFACE)
target_include_directories(orvelle_libyuv SYSTEM INTERFACE ${LIBYUV_INCLUDE_DIR})
target_link_libraries(orvelle_libyuv INTERFACE ${LIBYUV_LIBRARY})
# Playback: sound out through the sound server (PulseAudio's client library).
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
# llama.cpp's llama-cli, which orvelle-llm-helper runs: scripts/fetch-llama puts it (or a
# link to a usable system llama-cli) in third_party/llama/bin, beside the gguf-py writer and
# the vocabulary the tests make their tiny model from. The helper looks there at run time,
# so a build configured before the fetch finds it all the same.
set(ORVELLE_LLAMA_DIR ${PROJECT_SOURCE_DIR}/third_party/llama)
set(ORVELLE_LLAMA_CLI ${ORVELLE_LLAMA_DIR}/bin/llama-cli)

# Screen capture on X11: the core protocol, shared memory, RandR monitors, XInput2 clicks.
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-shm xcb-randr xcb-xinput)
# Screen capture on Wayland: PipeWire streams (its SPA headers included as system headers,
# for their C idioms).
pkg_check_modules(PIPEWIRE REQUIRED libpipewire-0.3)
add_library(orvelle_pipewire INTERFACE)
target_include_directories(orvelle_pipewire SYSTEM INTERFACE ${PIPEWIRE_INCLUDE_DIRS})
target_compile_options(orvelle_pipewire INTERFACE ${PIPEWIRE_CFLAGS_OTHER})
target_link_libraries(orvelle_pipewire INTERFACE ${PIPEWIRE_LINK_LIBRARIES})
# The desktop portal is reached over the session bus with GDBus (GLib is already there for
# Pango).
pkg_check_modules(GIO REQUIRED IMPORTED_TARGET gio-unix-2.0)
# The desktop application: Qt 6 Widgets (and Qt Test for its tests), in src/app only.
if(ORVELLE_BUILD_APP)
  if(ORVELLE_BUILD_TESTS)
    find_package(Qt6 6.4 REQUIRED COMPONENTS Widgets Test)
  else()
    find_package(Qt6 6.4 REQUIRED COMPONENTS Widgets)
  endif()
endif()
