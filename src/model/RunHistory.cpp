#include "model/RunHistory.hpp"

#include "audio/WavReader.hpp"
#include "model/Sha256.hpp"

#include <exception>

namespace marquetry::model {

RunSettings RunHistory::Entry::replaySettings() const {
    RunSettings replay = settings;
    replay.seedText = std::to_string(seed);
    return replay;
}

void RunHistory::add(const RunRecord& run, std::size_t variations) {
    Entry entry{.settings = run.settings, .seed = run.seed, .sources = {}, .ticks = std::vector<bool>(variations, true)};
    for (const SourceRecord& source : run.sources)
        entry.sources.emplace_back(source.path, source.sha256);
    if (entries_.size() == capacity)
        entries_.erase(entries_.begin());
    entries_.push_back(std::move(entry));
    show(entries_.size() - 1);
}

void RunHistory::show(std::size_t index) {
    current_ = index;
    shown_ = true;
}

void RunHistory::setTick(std::size_t index, bool ticked) {
    if (!shown_ || !current_)
        return;
    std::vector<bool>& ticks = entries_[*current_].ticks;
    if (index < ticks.size())
        ticks[index] = ticked;
}

std::optional<std::size_t> RunHistory::backTarget() const {
    if (!current_)
        return std::nullopt;
    if (!shown_)
        return current_;
    return *current_ > 0 ? std::optional(*current_ - 1) : std::nullopt;
}

std::optional<std::size_t> RunHistory::forwardTarget() const {
    if (!current_ || *current_ + 1 >= entries_.size())
        return std::nullopt;
    return *current_ + 1;
}

std::optional<std::string> changedSource(const RunHistory::Entry& entry) {
    for (const auto& [path, digest] : entry.sources) {
        try {
            if (sha256Hex(audio::readWholeFile(path)) != digest)
                return path;
        } catch (const std::exception&) {
            return path; // gone or unreadable: not the bytes the run read
        }
    }
    return std::nullopt;
}

} // namespace marquetry::model
