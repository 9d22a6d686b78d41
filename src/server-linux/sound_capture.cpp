#include "server-linux/sound_capture.h"

#include "server-linux/helper_log.h"

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop.h>
#include <pulse/stream.h>
#include <pulse/timeval.h>

namespace velmora::ServerHelper {

namespace {

// What the clients hear lags the desktop by about this much, plus the network.
constexpr pa_usec_t fragment = 20 * PA_USEC_PER_MSEC;
constexpr std::size_t frameBytes = SoundCapture::channels * sizeof(std::int16_t);

}  // namespace

SoundCapture::SoundCapture(Sink sink) : sink_(std::move(sink)), thread_([this] { run(); }) {}

SoundCapture::~SoundCapture() {
    {
        std::lock_guard guard(lock_);
        quit_ = true;
        if (loop_) pa_mainloop_wakeup(loop_);
    }
    wake_.notify_all();
    thread_.join();
}

void SoundCapture::listen(const void* listener) {
    {
        std::lock_guard guard(lock_);
        if (!listeners_.insert(listener).second) return;
        ++generation_;
    }
    wake_.notify_all();
}

void SoundCapture::forget(const void* listener) {
    std::lock_guard guard(lock_);
    if (listeners_.erase(listener) && listeners_.empty() && loop_) pa_mainloop_wakeup(loop_);
}

bool SoundCapture::listens(const void* listener) {
    std::lock_guard guard(lock_);
    return listeners_.count(listener) > 0;
}

bool SoundCapture::listened() {
    std::lock_guard guard(lock_);
    return !quit_ && !listeners_.empty();
}

void SoundCapture::missing(const std::string& why) {
    if (missingSaid_) return;
    missingSaid_ = true;
    logLine("no sound server (PulseAudio or PipeWire) answers, so clients get no sound: " + why);
}

void SoundCapture::run() {
    // Said at start-up rather than when the first client comes.
    connectAndCapture(true);
    unsigned failed = ~0u;  // a capture that failed is tried again when another listener comes
    std::unique_lock guard(lock_);
    for (;;) {
        wake_.wait(guard, [&] { return quit_ || (!listeners_.empty() && generation_ != failed); });
        if (quit_) return;
        const unsigned generation = generation_;
        guard.unlock();
        const bool captured = connectAndCapture(false);
        guard.lock();
        if (!captured) failed = generation;
    }
}

// Connects to the sound server and, unless only probing, records the default sink's monitor until
// nobody listens. False when the server or the stream could not be had.
bool SoundCapture::connectAndCapture(bool probeOnly) {
    pa_mainloop* loop = pa_mainloop_new();
    if (!loop) return false;
    {
        std::lock_guard guard(lock_);
        loop_ = loop;
    }
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "Velmora");
    bool ok = context && pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) >= 0;
    pa_context_state_t state = PA_CONTEXT_UNCONNECTED;
    while (ok && (state = pa_context_get_state(context)) != PA_CONTEXT_READY) {
        ok = PA_CONTEXT_IS_GOOD(state) && pa_mainloop_iterate(loop, 1, nullptr) >= 0 && (probeOnly || listened());
    }
    if (!ok && context && (probeOnly || listened())) missing(pa_strerror(pa_context_errno(context)));
    if (ok && missingSaid_) {
        logLine("the sound server answers now");
        missingSaid_ = false;
    }

    pa_stream* stream = nullptr;
    if (ok && !probeOnly) {
        const pa_sample_spec format{PA_SAMPLE_S16LE, rate, channels};
        stream = pa_stream_new(context, "Desktop sound for remote clients", &format, nullptr);
        pa_buffer_attr buffer{};
        buffer.maxlength = buffer.tlength = buffer.prebuf = buffer.minreq = static_cast<std::uint32_t>(-1);
        buffer.fragsize = static_cast<std::uint32_t>(pa_usec_to_bytes(fragment, &format));
        auto read = [](pa_stream* s, std::size_t, void* self) {
            const void* data = nullptr;
            std::size_t bytes = 0;
            while (pa_stream_readable_size(s) > 0 && pa_stream_peek(s, &data, &bytes) == 0 && bytes > 0) {
                // No data with a size is a hole in the recording: nothing to send.
                if (data)
                    static_cast<SoundCapture*>(self)->sink_(static_cast<const std::int16_t*>(data), bytes / frameBytes);
                pa_stream_drop(s);
            }
        };
        ok = stream && (pa_stream_set_read_callback(stream, read, this),
                        pa_stream_connect_record(stream, "@DEFAULT_MONITOR@", &buffer, PA_STREAM_ADJUST_LATENCY) >= 0);
        if (ok) logLine("sending the desktop's sound to clients");
        while (ok && listened() && PA_STREAM_IS_GOOD(pa_stream_get_state(stream)))
            ok = pa_mainloop_iterate(loop, 1, nullptr) >= 0;
        if (!ok || !PA_STREAM_IS_GOOD(pa_stream_get_state(stream)))
            logLine(std::string("the desktop's sound cannot be recorded: ") + pa_strerror(pa_context_errno(context)));
        else
            logLine("no client listens; the desktop's sound is no longer recorded");
        ok = ok && PA_STREAM_IS_GOOD(pa_stream_get_state(stream));
    }
    if (stream) {
        pa_stream_disconnect(stream);
        pa_stream_unref(stream);
    }
    if (context) {
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
    {
        std::lock_guard guard(lock_);
        loop_ = nullptr;
    }
    pa_mainloop_free(loop);
    return ok;
}

}  // namespace velmora::ServerHelper
