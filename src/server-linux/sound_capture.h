#pragma once
// The desktop's sound: the monitor of the default PulseAudio (or PipeWire) sink, recorded through
// libpulse on a thread of its own, and only while at least one client listens. With nobody
// listening no capture stream is open and the thread sleeps without waking. A missing sound
// server is said once in the log (again only after it was found in between), and the capture is
// tried again when the next client starts listening.

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>

struct pa_mainloop;

namespace velmora::ServerHelper {

class SoundCapture {
public:
    // The format captured and sent: 16-bit PCM, interleaved stereo, 44.1 kHz.
    static constexpr int rate = 44100;
    static constexpr int channels = 2;

    // `sink` gets the samples, on the capture thread, in pieces of about 20 ms.
    using Sink = std::function<void(const std::int16_t* samples, std::size_t frames)>;
    explicit SoundCapture(Sink sink);
    ~SoundCapture();
    SoundCapture(const SoundCapture&) = delete;
    SoundCapture& operator=(const SoundCapture&) = delete;

    // From any thread, never blocking: `listener` starts or stops listening.
    void listen(const void* listener);
    void forget(const void* listener);
    bool listens(const void* listener);

private:
    void run();
    bool connectAndCapture(bool probeOnly);
    bool listened();
    void missing(const std::string& why);

    Sink sink_;
    std::mutex lock_;
    std::condition_variable wake_;
    std::set<const void*> listeners_;
    unsigned generation_ = 0;       // counts the listeners that came
    bool quit_ = false;
    pa_mainloop* loop_ = nullptr;   // while the thread runs one, so that it can be woken
    bool missingSaid_ = false;      // the capture thread's own
    std::thread thread_;
};

}  // namespace velmora::ServerHelper
