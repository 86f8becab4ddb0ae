# Generates, at configure time, an overlay of the stock Qt Multimedia headers
# that carries the device's additions (nested player types, the metadata-only
# flag, extra metadata keys). The overlay goes first on the include path.
#
#   orvic_generate_qt_overlay(<stock QtMultimedia include dir> <output dir>)
# sets ORVIC_QT_OVERLAY_INCLUDE_DIRS in the caller's scope.

function(_orvic_insert_after text anchor insertion outvar what)
    string(FIND "${text}" "${anchor}" pos)
    if(pos EQUAL -1)
        message(FATAL_ERROR "Qt Multimedia overlay: anchor '${anchor}' not found in stock ${what}; "
                            "this Qt version is not supported by the overlay")
    endif()
    string(LENGTH "${anchor}" alen)
    math(EXPR cut "${pos} + ${alen}")
    string(SUBSTRING "${text}" 0 ${cut} head)
    string(SUBSTRING "${text}" ${cut} -1 tail)
    set(${outvar} "${head}${insertion}${tail}" PARENT_SCOPE)
endfunction()

function(orvic_generate_qt_overlay stock_dir out_dir)
    set(src "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../platform/qtmultimedia")
    set(dst "${out_dir}/QtMultimedia")
    file(MAKE_DIRECTORY "${dst}")
    foreach(f qmediaplayer.h qmediametadata.h QtMultimedia)
        if(NOT EXISTS "${stock_dir}/${f}")
            message(FATAL_ERROR "Qt Multimedia overlay: ${stock_dir}/${f} not found")
        endif()
    endforeach()

    file(READ "${stock_dir}/qmediaplayer.h" player)
    file(READ "${src}/qmediaplayer_nested.inc" nested)
    file(READ "${src}/qmediaplayer_metatypes.inc" metatypes)
    _orvic_insert_after("${player}" "#define QMEDIAPLAYER_H"
        "\n#define QT_MULTIMEDIA_DEVICE_EXTENSIONS 1" player qmediaplayer.h)
    _orvic_insert_after("${player}" "VideoSurface = 0x04"
        ",\n        MetaDataOnly = 0x08" player qmediaplayer.h)
    _orvic_insert_after("${player}" "Q_DECLARE_FLAGS(Flags, Flag)" "\n${nested}" player qmediaplayer.h)
    _orvic_insert_after("${player}" "Q_DECLARE_METATYPE(QMediaPlayer::Error)" "\n${metatypes}" player qmediaplayer.h)
    file(WRITE "${dst}/qmediaplayer.h.tmp" "${player}")
    file(COPY_FILE "${dst}/qmediaplayer.h.tmp" "${dst}/qmediaplayer.h" ONLY_IF_DIFFERENT)

    file(READ "${stock_dir}/qmediametadata.h" meta)
    file(READ "${src}/qmediametadata_keys.inc" keys)
    _orvic_insert_after("${meta}" "#define QMEDIAMETADATA_H"
        "\n#define QT_MULTIMEDIA_DEVICE_METADATA_KEYS 1" meta qmediametadata.h)
    _orvic_insert_after("${meta}" "Q_DECLARE_METADATA(ThumbnailImage);" "${keys}" meta qmediametadata.h)
    file(WRITE "${dst}/qmediametadata.h.tmp" "${meta}")
    file(COPY_FILE "${dst}/qmediametadata.h.tmp" "${dst}/qmediametadata.h" ONLY_IF_DIFFERENT)

    # The umbrella and the class-name forwarders include with quotes, which
    # looks beside the including file first: copies here resolve to the overlay.
    configure_file("${stock_dir}/QtMultimedia" "${dst}/QtMultimedia" COPYONLY)
    file(WRITE "${dst}/QMediaPlayer.tmp" "#include \"qmediaplayer.h\"\n")
    file(COPY_FILE "${dst}/QMediaPlayer.tmp" "${dst}/QMediaPlayer" ONLY_IF_DIFFERENT)
    file(WRITE "${dst}/QMediaMetaData.tmp" "#include \"qmediametadata.h\"\n")
    file(COPY_FILE "${dst}/QMediaMetaData.tmp" "${dst}/QMediaMetaData" ONLY_IF_DIFFERENT)
    file(REMOVE "${dst}/qmediaplayer.h.tmp" "${dst}/qmediametadata.h.tmp" "${dst}/QMediaPlayer.tmp" "${dst}/QMediaMetaData.tmp")

    set(ORVIC_QT_OVERLAY_INCLUDE_DIRS "${out_dir}" "${dst}" PARENT_SCOPE)
endfunction()
