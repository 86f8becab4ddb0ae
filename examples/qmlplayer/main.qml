import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import QtMultimedia 5.15

ApplicationWindow {
    id: window
    width: 640
    height: 400
    visible: true
    title: titleText !== "" ? titleText + " - qmlplayer" : "qmlplayer"

    readonly property string titleText: player.metaData.title ? String(player.metaData.title) : ""
    // Back ends differ in which key carries the artist.
    readonly property string artistText: firstText([player.metaData.albumArtist,
                                                    player.metaData.contributingArtist,
                                                    player.metaData.author])
    readonly property string albumText: player.metaData.albumTitle ? String(player.metaData.albumTitle) : ""
    property bool screenshotTaken: false

    function firstText(values) {
        for (var i = 0; i < values.length; ++i) {
            if (values[i] !== undefined && values[i] !== null && String(values[i]) !== "")
                return String(values[i])
        }
        return ""
    }

    function clock(ms) {
        var s = Math.floor(ms / 1000)
        var m = Math.floor(s / 60)
        s = s % 60
        return m + ":" + (s < 10 ? "0" : "") + s
    }

    readonly property var stateNames: ({
        [MediaPlayer.StoppedState]: "Stopped",
        [MediaPlayer.PlayingState]: "Playing",
        [MediaPlayer.PausedState]: "Paused"
    })
    readonly property var statusNames: ({
        [MediaPlayer.UnknownStatus]: "Unknown",
        [MediaPlayer.NoMedia]: "NoMedia",
        [MediaPlayer.Loading]: "Loading",
        [MediaPlayer.Loaded]: "Loaded",
        [MediaPlayer.Stalled]: "Stalled",
        [MediaPlayer.Buffering]: "Buffering",
        [MediaPlayer.Buffered]: "Buffered",
        [MediaPlayer.EndOfMedia]: "EndOfMedia",
        [MediaPlayer.InvalidMedia]: "InvalidMedia"
    })

    // Once a second into playback, with the tags and the cover in place.
    function maybeScreenshot() {
        if (!shell.screenshotWanted || screenshotTaken)
            return
        if (player.playbackState !== MediaPlayer.PlayingState || player.position < 1000)
            return
        if (cover.status === Image.Loading)
            return
        screenshotTaken = true
        shell.screenshot()
    }

    MediaPlayer {
        id: player
        objectName: "player"
        source: shell.medium
        volume: shell.initialVolume
        autoPlay: true

        onPlaybackStateChanged: shell.report("state " + stateNames[playbackState])
        onStatusChanged: {
            shell.report("status " + statusNames[status])
            if (!shell.quitAtEnd)
                return
            if (status === MediaPlayer.EndOfMedia)
                shell.finish(0)
            else if (status === MediaPlayer.InvalidMedia)
                shell.finish(1)
        }
        onDurationChanged: shell.report("duration " + duration)
        onPositionChanged: maybeScreenshot()
        onError: {
            shell.report("error " + errorString)
            if (shell.quitAtEnd)
                shell.finish(1)
        }
    }

    onTitleTextChanged: if (titleText !== "") shell.report("title " + titleText)
    onArtistTextChanged: if (artistText !== "") shell.report("artist " + artistText)
    onAlbumTextChanged: if (albumText !== "") shell.report("album " + albumText)

    Connections {
        target: coverArt
        function onChanged() {
            if (coverArt.source !== "")
                shell.report("cover " + coverArt.size.width + "x" + coverArt.size.height)
        }
    }

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 16
        spacing: 12

        RowLayout {
            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 16

            Rectangle {
                Layout.preferredWidth: 240
                Layout.preferredHeight: 240
                Layout.alignment: Qt.AlignTop
                color: "#202020"

                Image {
                    id: cover
                    anchors.fill: parent
                    fillMode: Image.PreserveAspectFit
                    source: coverArt.source
                    sourceSize: Qt.size(480, 480)
                    cache: false
                    visible: !video.visible
                    onStatusChanged: window.maybeScreenshot()
                }
                VideoOutput {
                    id: video
                    anchors.fill: parent
                    source: player
                    visible: player.hasVideo
                }
                Label {
                    anchors.centerIn: parent
                    visible: cover.status !== Image.Ready && !video.visible
                    text: "no cover"
                    color: "#909090"
                }
            }

            ColumnLayout {
                Layout.fillWidth: true
                Layout.alignment: Qt.AlignTop
                spacing: 6

                Label {
                    Layout.fillWidth: true
                    text: titleText !== "" ? titleText : shell.medium.toString().replace(/^.*\//, "")
                    font.pixelSize: 22
                    font.bold: true
                    wrapMode: Text.Wrap
                }
                Label {
                    Layout.fillWidth: true
                    text: artistText
                    font.pixelSize: 17
                    wrapMode: Text.Wrap
                }
                Label {
                    Layout.fillWidth: true
                    text: albumText
                    font.pixelSize: 15
                    font.italic: true
                    wrapMode: Text.Wrap
                }
                Label {
                    Layout.fillWidth: true
                    text: player.error !== MediaPlayer.NoError ? player.errorString
                                                               : statusNames[player.status]
                    color: player.error !== MediaPlayer.NoError ? "#c03030" : "#707070"
                    wrapMode: Text.Wrap
                }
            }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8

            Label { text: clock(player.position) }
            Slider {
                id: seekSlider
                Layout.fillWidth: true
                from: 0
                to: Math.max(player.duration, 1)
                value: player.position
                enabled: player.seekable
                onMoved: player.seek(value)
            }
            Label { text: clock(player.duration) }
        }

        RowLayout {
            Layout.fillWidth: true
            spacing: 8

            Button {
                text: player.playbackState === MediaPlayer.PlayingState ? "Pause" : "Play"
                onClicked: player.playbackState === MediaPlayer.PlayingState ? player.pause() : player.play()
            }
            Button {
                text: "Stop"
                onClicked: player.stop()
            }
            Item { Layout.fillWidth: true }
            Label { text: player.muted ? "Muted" : "Volume" }
            Slider {
                Layout.preferredWidth: 160
                from: 0
                to: 1
                value: player.volume
                onMoved: player.volume = value
            }
            Button {
                text: player.muted ? "Unmute" : "Mute"
                onClicked: player.muted = !player.muted
            }
        }
    }
}
