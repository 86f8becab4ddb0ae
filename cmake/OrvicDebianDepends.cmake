# Runtime dependencies of the Debian package liborvicutil1, shared by the
# packaging (cmake/OrvicPackaging.cmake) and the package test
# (tests/install/PackageCheck.cmake).

# soname -> Debian package that provides it, on every architecture built.
set(ORVIC_DEB_SONAME_PACKAGES
    libc.so.6=libc6 libm.so.6=libc6 ld-linux-armhf.so.3=libc6 ld-linux-x86-64.so.2=libc6
    libgcc_s.so.1=libgcc-s1 libstdc++.so.6=libstdc++6
    libQt5Core.so.5=libqt5core5a libQt5Gui.so.5=libqt5gui5 libQt5Network.so.5=libqt5network5
    libQt5Multimedia.so.5=libqt5multimedia5 libuchardet.so.0=libuchardet0
    # the PC platform's metadata reader (libplayback.so)
    libtag.so.1=libtag1v5 libavformat.so.59=libavformat59 libavcodec.so.59=libavcodec59
    libavutil.so.57=libavutil57 libswscale.so.6=libswscale6
    # the PC platform's playback service (psserver)
    libgstreamer-1.0.so.0=libgstreamer1.0-0 libgstapp-1.0.so.0=libgstreamer-plugins-base1.0-0
    libgsttag-1.0.so.0=libgstreamer-plugins-base1.0-0
    libgstvideo-1.0.so.0=libgstreamer-plugins-base1.0-0
    libglib-2.0.so.0=libglib2.0-0 libgobject-2.0.so.0=libglib2.0-0)

# Minimum versions: those of Debian 12, which the library is built and tested
# on (Qt at the 5.15 series the sources need, FFmpeg 5.1, TagLib 1.13).
set(ORVIC_DEB_RUNTIME_DEPENDS
    "libc6 (>= 2.36)"
    "libgcc-s1 (>= 12)"
    "libstdc++6 (>= 12)"
    "libqt5core5a (>= 5.15.1)"
    "libqt5gui5 (>= 5.15.1) | libqt5gui5-gles (>= 5.15.1)"
    "libqt5multimedia5 (>= 5.15.1)"
    "libqt5network5 (>= 5.15.1)"
    "libuchardet0 (>= 0.0.7)"
    "libtag1v5 (>= 1.13)"
    "libavformat59 (>= 7:5.1)"
    "libavcodec59 (>= 7:5.1)"
    "libavutil57 (>= 7:5.1)"
    "libswscale6 (>= 7:5.1)")

# The Qt Multimedia back end plugin (package orvic-mediaplayer-plugin), beside
# liborvicutil1 (= the same version).
set(ORVIC_DEB_PLUGIN_DEPENDS
    "libc6 (>= 2.36)"
    "libgcc-s1 (>= 12)"
    "libstdc++6 (>= 12)"
    "libqt5core5a (>= 5.15.1)"
    "libqt5gui5 (>= 5.15.1) | libqt5gui5-gles (>= 5.15.1)"
    "libqt5multimedia5 (>= 5.15.1)"
    "libqt5network5 (>= 5.15.1)")

# The PC platform's playback service, where the build has one. Besides the
# libraries it links, it builds its engines from GStreamer plugins: playbin,
# appsink, typefinding, audio conversion, subparse and the Ogg/Vorbis/Opus/
# Theora decoders are in gstreamer1.0-plugins-base (fakesink is in
# libgstreamer1.0-0), so an install without Recommends still plays those.
# The demuxers and decoders of everyday media (MP3 with ID3, MP4, AAC, H.264)
# come with the recommended sets.
set(ORVIC_DEB_SERVICE_DEPENDS
    "libgstreamer1.0-0 (>= 1.22)"
    "libgstreamer-plugins-base1.0-0 (>= 1.22)"
    "libglib2.0-0 (>= 2.74)"
    "gstreamer1.0-plugins-base (>= 1.22)")
set(ORVIC_DEB_SERVICE_RECOMMENDS
    "gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly, gstreamer1.0-libav")

# orvic_debian_arch(<var>): the Debian architecture of the build's target
# (amd64, armhf, ...), or empty where dpkg-architecture cannot tell.
function(orvic_debian_arch outvar)
    set(arch "")
    find_program(ORVIC_DPKG_ARCHITECTURE dpkg-architecture)
    if(ORVIC_DPKG_ARCHITECTURE AND CMAKE_LIBRARY_ARCHITECTURE)
        execute_process(COMMAND "${ORVIC_DPKG_ARCHITECTURE}" -t "${CMAKE_LIBRARY_ARCHITECTURE}" -qDEB_HOST_ARCH
                        OUTPUT_VARIABLE arch ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
    endif()
    set(${outvar} "${arch}" PARENT_SCOPE)
endfunction()
