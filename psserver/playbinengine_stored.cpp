// The calls the service's socket thread answers itself from the values the
// engine keeps and from the pipeline's own properties and queries: a volume
// command, a getter of a stored value, the position, a stream count or the
// current stream is answered without the hop to the engine thread and back. Only while no
// call of the client is with the engine: the pipeline is replaced, and the
// subtitle files beside the medium change, only in calls.
#include "playbinengine.h"
#include "playbinengine_p.h"
#include "pswire.h"

using namespace playbinengine;

bool PlaybinEngine::answerFromStore(quint32 operation, const QVariantList &arguments, StoredAnswer *answer)
{
    // Without a pipeline the engine thread gives the failure.
    if (!m_hasPipeline)
        return false;
    switch (operation) {
    case pswire::OpGetState:
        answer->result = int(m_state.load());
        return true;
    case pswire::OpGetSpeed:
        answer->result = m_rate.load();
        return true;
    case pswire::OpIsTrickPlaySupported:
        answer->result = isPrepared() && m_seekable;
        return true;
    case pswire::OpGetVolume:
        answer->result = m_volume.load();
        return true;
    case pswire::OpGetDuration: {
        // Known once prepared; an unknown one is asked of the pipeline by
        // the engine thread, which keeps what it learns.
        const qint64 duration = m_durationMs.load();
        if (!isPrepared() || duration <= 0)
            return false;
        answer->result = duration;
        return true;
    }
    case pswire::OpGetPosition:
        // The clocked sinks answer position queries on any thread; a seek
        // begins only in a call, and none is with the engine now.
        answer->result = position();
        return true;
    case pswire::OpGetCurrentStream:
        // playbin answers its properties on any thread; the subtitle files
        // beside the medium change only in calls, and none is in the
        // engine's hands now.
        answer->result = currentStream(arguments.value(0).toInt());
        return true;
    case pswire::OpGetParameter: {
        const QByteArray key = arguments.value(1).toByteArray();
        if (key == "get-audio-count" || key == "get-subtitle-count" || key == "get-video-count") {
            // Counted from the pipeline, which answers on any thread (as
            // for the current stream above).
            QByteArray output;
            answer->result = getParameter(key, &output);
            answer->output = output;
            return true;
        }
        bool on;
        if (key == "get-subtitle-onoff")
            on = m_subtitleOn;
        else if (key == "get-video-onoff")
            on = m_videoOn;
        else if (key == "get-audio-onoff")
            on = m_audioOn;
        else
            return false;
        answer->result = int(pswire::ResultOk);
        answer->output = intBytes(on);
        return true;
    }
    case pswire::OpSetStreamVolume: {
        const int volume = arguments.value(0).toInt();
        if (volume < 0 || volume > 100) {
            answer->result = int(pswire::ResultInvalidArgument);
            return true;
        }
        m_volume = volume;
        // No call is in the engine's hands, so the pipeline is not being
        // replaced: the write joins the writer's queue behind the writes of
        // the calls before it and ahead of those after it.
        answer->afterwards = [this, volume] { writeVolume(volume); };
        answer->events.append(qMakePair(quint32(pswire::EvVolumeChanged), QVariantList{volume}));
        answer->result = int(pswire::ResultOk);
        return true;
    }
    default:
        return false;
    }
}
