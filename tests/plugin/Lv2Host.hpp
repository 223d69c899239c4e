#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace marquetry::test {

/// A small LV2 host on lilv, the loader real hosts use: it instantiates a
/// plugin from its bundle with the features a DPF instrument needs, restores
/// a state, sets control ports by symbol, and renders blocks with the host's
/// transport and MIDI notes at exact frames.
class Lv2Host {
public:
    struct Note {
        std::int64_t frame = 0; ///< from the first frame rendered
        std::uint8_t note = 0;
        std::uint8_t velocity = 127;
    };
    struct Audio {
        std::vector<float> left, right;
    };

    /// Loads `uri` from the bundle folder `bundle`. Throws std::runtime_error
    /// saying what failed.
    Lv2Host(const std::string& bundle, const std::string& uri, double sampleRate, std::uint32_t blockFrames);
    ~Lv2Host();
    Lv2Host(const Lv2Host&) = delete;
    Lv2Host& operator=(const Lv2Host&) = delete;

    /// Restores a state of the plugin's own properties (`loop` as a path,
    /// the rest as strings), as a host does when it opens a project.
    void restoreState(const std::map<std::string, std::string>& properties);

    /// Sets an input control port; reads any control port.
    void setControl(const std::string& symbol, float value);
    float control(const std::string& symbol) const;

    /// Renders silent blocks with the transport stopped until the control
    /// `symbol` differs from `busy`; false when it still does after ten
    /// seconds.
    bool waitWhile(const std::string& symbol, float busy);

    /// Renders `frames` frames with the transport rolling from frame 0 at
    /// `bpm` (stopped when bpm is 0) and `notes` at their frames.
    Audio render(std::int64_t frames, double bpm, const std::vector<Note>& notes = {});

    /// Operator new calls made on this thread inside the plugin's run()
    /// since the host was made.
    std::int64_t allocationsInRun() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace marquetry::test
