import QtQuick 2.15
import QtMultimedia 5.15
import QtTest 1.2

TestCase {
    id: testCase
    name: "QmlMediaPlayer"

    property var events: []

    MediaPlayer {
        id: player
        notifyInterval: 100
        onStatusChanged: testCase.events.push("status:" + status)
        onPlaybackStateChanged: testCase.events.push("state:" + playbackState)
    }

    function init() {
        player.source = ""
        events = []
    }

    function test_backendIsOrvic() {
        compare(backend.serviceClass(player), "QOrvicMediaService")
        compare(player.availability, MediaPlayer.Available)
    }

    function test_loadPlayPauseSeekStop() {
        player.source = mediaDir + "sine.mp3"
        tryCompare(player, "status", MediaPlayer.Loaded, 20000)
        compare(events, ["status:" + MediaPlayer.Loading, "status:" + MediaPlayer.Loaded])
        verify(player.duration > 3500 && player.duration < 4500)
        verify(player.seekable)
        verify(player.hasAudio)
        verify(!player.hasVideo)

        events = []
        player.play()
        compare(events, ["status:" + MediaPlayer.Buffered, "state:" + MediaPlayer.PlayingState])
        tryVerify(function() { return player.position > 300 }, 10000)

        events = []
        player.pause()
        compare(events, ["state:" + MediaPlayer.PausedState])
        player.seek(2500)
        tryCompare(player, "position", 2500, 10000)
        compare(player.playbackState, MediaPlayer.PausedState)

        player.play()
        tryCompare(player, "status", MediaPlayer.EndOfMedia, 20000)
        compare(player.playbackState, MediaPlayer.StoppedState)
        compare(player.position, player.duration)
    }

    function test_tagsAndCover() {
        player.source = samplesDir + "tagged-gbk.mp3"
        tryCompare(player, "status", MediaPlayer.Loaded, 20000)
        compare(player.metaData.title, gbkTitle)
        compare(player.metaData.year, "2023")
        compare(player.metaData.albumArtist, gbkArtist)
    }

    function test_invalidMedia() {
        player.source = mediaDir + "notmedia.mp3"
        tryCompare(player, "status", MediaPlayer.InvalidMedia, 20000)
        compare(player.error, MediaPlayer.ResourceError)
        compare(player.playbackState, MediaPlayer.StoppedState)
    }

    function test_volumeAndMute() {
        player.volume = 0.25
        player.muted = true
        player.source = mediaDir + "sine.ogg"
        tryCompare(player, "status", MediaPlayer.Loaded, 20000)
        compare(player.volume, 0.25)
        compare(player.muted, true)
        player.muted = false
        player.volume = 1.0
    }
}
