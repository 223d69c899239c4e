// The DPF front end: parameters and states as the host sees them, a worker
// thread that makes runs, and the audio callback that hands the newest run
// to the Player.
#include "DistrhoPlugin.hpp"

#include "chop/ChopModel.hpp"
#include "chop/JoinFades.hpp"
#include "plugin/Player.hpp"
#include "plugin/PreparedRun.hpp"
#include "plugin/RunExchange.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

START_NAMESPACE_DISTRHO

namespace {

using namespace marquetry;

enum ParameterIndex : std::uint32_t { pModel, pSlices, pVariations, pVariation, pGlitch, pJoinFade, pFollow, pStatus, pCount };
enum StateIndex : std::uint32_t { sLoop, sSeed, sTempo, sLoopSha256, sCount };

// Hosts restore states in this order (LV2) or in the keys' alphabetical order
// (VST3): the checksum is last in both, which setState relies on.
constexpr std::array<std::string_view, sCount> stateKeys{"loop", "seed", "tempo", "verified_sha256"};
static_assert(std::is_sorted(stateKeys.begin(), stateKeys.end()));

// The largest run a project can ask for; the engine takes any count, the
// host needs a range.
constexpr float maxSlices = 128;
constexpr float maxVariations = 128;

// What the user is told in the host's list, by plugin::Status.
constexpr std::array<const char*, 8> statusLabels{"Playing", "Loading", "No loop", "Loop cannot be read",
                                                  "Seed is not a number", "Tempo unknown: notes only",
                                                  "Loop changed on disk", "Run failed"};

constexpr double glitchSteps = 1000;

// The longest a restore waits for its run; a larger run goes on in the
// background and the plugin plays once it is ready.
constexpr std::chrono::seconds restoreTimeLimit{60};

// How long a parameter change waits at most before the worker sees it: the
// audio thread only sets a flag, it never wakes a thread.
constexpr std::chrono::milliseconds pollInterval{10};

class MarquetryPlugin : public Plugin {
public:
    MarquetryPlugin() : Plugin(pCount, 0, sCount) {
        for (std::uint32_t i = 0; i < pCount; ++i) {
            Parameter parameter;
            initParameter(i, parameter);
            ranges_[i] = {parameter.ranges.def, parameter.ranges.min, parameter.ranges.max};
            values_[i].store(parameter.ranges.def);
        }
        sampleRate_.store(getSampleRate());
        worker_ = std::thread([this] { work(); });
    }

    ~MarquetryPlugin() override {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_one();
        prepared_.notify_all();
        worker_.join();
    }

protected:
    const char* getLabel() const override { return "Marquetry"; }
    const char* getDescription() const override {
        return "Plays seeded variations of a drum loop in time with the host, and its slices on notes from C1.";
    }
    const char* getMaker() const override { return "Marquetry"; }
    const char* getHomePage() const override { return "https://marquetry.org"; }
    const char* getLicense() const override { return "GPL-2.0-or-later"; }
    std::uint32_t getVersion() const override {
        return d_version(MARQUETRY_VERSION_MAJOR, MARQUETRY_VERSION_MINOR, MARQUETRY_VERSION_PATCH);
    }
    std::int64_t getUniqueId() const override { return d_cconst('M', 'q', 't', 'y'); }

    void initAudioPort(bool input, std::uint32_t index, AudioPort& port) override {
        port.groupId = kPortGroupStereo;
        Plugin::initAudioPort(input, index, port);
    }

    void initParameter(std::uint32_t index, Parameter& parameter) override {
        const auto integer = [&](const char* symbol, const char* name, float min, float max, float def) {
            parameter.hints = kParameterIsAutomatable | kParameterIsInteger;
            parameter.symbol = symbol;
            parameter.name = name;
            parameter.ranges = {def, min, max};
        };
        switch (index) {
        case pModel: {
            integer("model", "Chop model", 0, static_cast<float>(chop::allChopModels.size() - 1), 0);
            auto* values = new ParameterEnumerationValue[chop::allChopModels.size()];
            for (std::size_t i = 0; i < chop::allChopModels.size(); ++i)
                values[i] = {static_cast<float>(i), String(std::string(chop::label(chop::allChopModels[i])).c_str())};
            parameter.enumValues.count = static_cast<std::uint8_t>(chop::allChopModels.size());
            parameter.enumValues.restrictedMode = true;
            parameter.enumValues.values = values;
            break;
        }
        case pSlices: integer("slices", "Slices", 4, maxSlices, 16); break;
        case pVariations: integer("variations", "Variations", 1, maxVariations, 10); break;
        case pVariation: integer("variation", "Variation", 1, maxVariations, 1); break;
        case pGlitch:
            parameter.hints = kParameterIsAutomatable;
            parameter.symbol = "glitch";
            parameter.name = "Glitch amount";
            parameter.ranges = {0.55f, 0, 1};
            break;
        case pJoinFade:
            integer("join_fade_ms", "Join fade", 0, static_cast<float>(chop::maxJoinFadeMs), 0);
            parameter.unit = "ms";
            break;
        case pFollow:
            parameter.hints = kParameterIsAutomatable | kParameterIsBoolean | kParameterIsInteger;
            parameter.symbol = "follow";
            parameter.name = "Follow the host";
            parameter.ranges = {1, 0, 1};
            break;
        case pStatus: {
            parameter.hints = kParameterIsOutput | kParameterIsInteger;
            parameter.symbol = "status";
            parameter.name = "Status";
            parameter.ranges = {static_cast<float>(plugin::Status::noLoop), 0,
                                static_cast<float>(statusLabels.size() - 1)};
            auto* values = new ParameterEnumerationValue[statusLabels.size()];
            for (std::size_t i = 0; i < statusLabels.size(); ++i)
                values[i] = {static_cast<float>(i), statusLabels[i]};
            parameter.enumValues.count = static_cast<std::uint8_t>(statusLabels.size());
            parameter.enumValues.restrictedMode = true;
            parameter.enumValues.values = values;
            break;
        }
        default: break;
        }
    }

    void initState(std::uint32_t index, State& state) override {
        state.key = String(std::string(stateKeys.at(index)).c_str());
        switch (index) {
        case sLoop:
            state.hints = kStateIsFilenamePath;
            state.label = "Loop";
            state.description = "The drum loop, a WAV file.";
            break;
        case sSeed:
            state.hints = kStateIsHostWritable;
            state.label = "Seed";
            state.description = "The seed, a whole number: the same seed gives the same variations.";
            break;
        case sTempo:
            state.hints = kStateIsHostWritable;
            state.label = "Loop tempo";
            state.description = "The loop's tempo in BPM; empty: estimated from the loop.";
            break;
        case sLoopSha256:
            state.hints = kStateIsHostReadable;
            state.label = "Loop SHA-256";
            state.description = "The loop file's SHA-256, to tell when it changes on disk.";
            break;
        default: break;
        }
    }

    float getParameterValue(std::uint32_t index) const override {
        if (index == pStatus)
            return static_cast<float>(status_.load());
        return index < pCount ? values_[index].load() : 0.0f;
    }

    // Called on the audio thread by some hosts: only atomics. A value out of
    // range (or NaN) is held to the range, so nothing later sees it.
    void setParameterValue(std::uint32_t index, float value) override {
        if (index >= pStatus)
            return;
        const Range& range = ranges_[index];
        value = std::isnan(value) ? range.def : std::clamp(value, range.min, range.max);
        const float old = values_[index].exchange(value);
        if (old != value && index != pVariation && index != pFollow)
            requestRun();
    }

    String getState(const char* key) const override {
        const std::lock_guard lock(mutex_);
        for (std::uint32_t i = 0; i < sCount; ++i)
            if (std::string_view(key) == stateKeys[i])
                return String(stateText(i).c_str());
        return String();
    }

    // Called by the host off the audio thread: on restoring a project, or on
    // the host's worker when the user sets a state.
    void setState(const char* key, const char* value) override {
        std::unique_lock lock(mutex_);
        const std::string_view name(key);
        if (name == stateKeys[sLoop]) {
            // A loop the user picks is taken as it is; a project's restore
            // sets its checksum right after.
            settings_.loopPath = value;
            settings_.loopSha256.clear();
        } else if (name == stateKeys[sSeed]) {
            settings_.seedText = value;
        } else if (name == stateKeys[sTempo]) {
            settings_.tempoText = value;
        } else if (name == stateKeys[sLoopSha256]) {
            settings_.loopSha256 = value;
        }
        const std::uint64_t request = ++stateRequests_;
        requestRun();
        wake_.notify_one();
        // The checksum comes last in a restore: the run is made before the
        // restore returns, so an offline render (an export) starts with the
        // plugin ready rather than silent.
        if (name == stateKeys[sLoopSha256])
            prepared_.wait_for(lock, restoreTimeLimit, [&] { return stopping_ || stateRequestsDone_ >= request; });
    }

    void sampleRateChanged(double newSampleRate) override {
        sampleRate_.store(newSampleRate);
        requestRun();
    }

    void run(const float**, float** outputs, std::uint32_t frames, const MidiEvent* midiEvents,
             std::uint32_t midiEventCount) override {
        if (frames == 0)
            return;
        std::size_t count = 0;
        for (std::uint32_t i = 0; i < midiEventCount && count < notes_.size(); ++i) {
            const MidiEvent& event = midiEvents[i];
            if (event.size == 3 && (event.data[0] & 0xF0) == 0x90 && event.data[2] > 0)
                notes_[count++] = {std::min(event.frame, frames - 1), event.data[1], event.data[2]};
        }
        const TimePosition& time = getTimePosition();
        const plugin::Transport transport{time.playing, static_cast<audio::FrameIndex>(time.frame),
                                          time.bbt.valid ? time.bbt.beatsPerMinute : 0.0};
        const plugin::PlayControls controls{values_[pFollow].load() >= 0.5f,
                                            std::llround(values_[pVariation].load())};
        player_.process(exchange_.acquire(), transport, controls, std::span(notes_.data(), count), outputs[0],
                        outputs[1], frames);
    }

private:
    std::string stateText(std::uint32_t index) const {
        switch (index) {
        case sLoop: return settings_.loopPath;
        case sSeed: return settings_.seedText;
        case sTempo: return settings_.tempoText;
        case sLoopSha256: return settings_.loopSha256;
        default: return {};
        }
    }

    // Real-time safe: the worker sees the flag within pollInterval.
    void requestRun() {
        dirty_.store(true);
        status_.store(static_cast<int>(plugin::Status::loading));
    }

    plugin::PluginSettings currentSettings() const {
        plugin::PluginSettings settings = settings_;
        const auto integer = [&](ParameterIndex index) { return std::llround(values_[index].load()); };
        settings.model = chop::allChopModels[static_cast<std::size_t>(integer(pModel))];
        settings.slices = integer(pSlices);
        settings.variations = integer(pVariations);
        // A float parameter cannot hold 0.55; the window's slider steps in
        // thousandths, and so does this, to give the command line's double.
        settings.glitch = static_cast<double>(std::lround(values_[pGlitch].load() * glitchSteps)) / glitchSteps;
        settings.joinFadeMs = integer(pJoinFade);
        return settings;
    }

    // The worker: a new run whenever what it is made from changes; replaced
    // runs are freed here, never on the audio thread.
    void work() {
        plugin::PluginSettings prepared;
        double preparedRate = 0;
        bool havePrepared = false;
        int preparedStatus = static_cast<int>(plugin::Status::loading);
        std::unique_lock lock(mutex_);
        while (!stopping_) {
            wake_.wait_for(lock, pollInterval, [&] { return stopping_ || dirty_.load(); });
            exchange_.collect();
            if (stopping_ || !dirty_.exchange(false))
                continue;
            const std::uint64_t requests = stateRequests_;
            const plugin::PluginSettings settings = currentSettings();
            const double rate = sampleRate_.load();
            if (havePrepared && settings == prepared && rate == preparedRate) {
                // Nothing changed after all: the run that plays stays, and so does its status.
                status_.store(preparedStatus);
                if (dirty_.load())
                    status_.store(static_cast<int>(plugin::Status::loading));
                stateRequestsDone_ = requests;
                prepared_.notify_all();
                continue;
            }
            status_.store(static_cast<int>(plugin::Status::loading));
            lock.unlock();
            std::unique_ptr<const plugin::PreparedRun> run = plugin::prepareRun(settings, rate);
            lock.lock();
            // A plugin just added has no loop yet: nothing to say.
            if (!run->message.empty() && !settings.loopPath.empty())
                d_stderr2("Marquetry: %s", run->message.c_str());
            prepared = settings;
            preparedRate = rate;
            havePrepared = true;
            // The checksum of a loop just picked is the one the project keeps.
            if (settings_.loopPath == settings.loopPath && settings_.loopSha256.empty() && !run->loopSha256.empty()) {
                settings_.loopSha256 = run->loopSha256;
                prepared.loopSha256 = run->loopSha256;
            }
            // A change that came in meanwhile keeps the status at loading.
            preparedStatus = static_cast<int>(run->status);
            status_.store(preparedStatus);
            if (dirty_.load())
                status_.store(static_cast<int>(plugin::Status::loading));
            exchange_.publish(std::move(run));
            stateRequestsDone_ = requests;
            prepared_.notify_all();
        }
    }

    struct Range {
        float def = 0, min = 0, max = 0;
    };
    std::array<Range, pCount> ranges_{};
    std::array<std::atomic<float>, pCount> values_{};
    std::atomic<double> sampleRate_{0};
    std::atomic<bool> dirty_{true};
    std::atomic<int> status_{static_cast<int>(plugin::Status::loading)};

    mutable std::mutex mutex_; // guards the members up to stopping_
    std::condition_variable wake_;
    std::condition_variable prepared_;
    plugin::PluginSettings settings_;
    std::uint64_t stateRequests_ = 0;     // setState calls so far
    std::uint64_t stateRequestsDone_ = 0; // of those, how many the published run includes
    bool stopping_ = false;

    plugin::RunExchange exchange_;
    plugin::Player player_;             // the audio thread's
    std::array<plugin::NoteOn, 512> notes_{}; // the audio thread's
    std::thread worker_;
};

} // namespace

Plugin* createPlugin() {
    return new MarquetryPlugin();
}

END_NAMESPACE_DISTRHO
