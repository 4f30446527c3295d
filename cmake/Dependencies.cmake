# Every third-party dependency is found here, once. scripts/bootstrap installs them.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)

pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET
  libavformat libavcodec libavutil libswscale libswresample)

if(ORVELLE_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ORVELLE_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()
