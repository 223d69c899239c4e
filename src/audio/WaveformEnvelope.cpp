#include "audio/WaveformEnvelope.hpp"

#include "audio/SampleMagnitude.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

namespace marquetry::audio {
namespace {

// Largest |sample| of a run of contiguous 16-bit samples. Dividing the
// largest magnitude by 32767 once gives the same float as dividing each one
// and keeping the largest (rounding is monotonic). Tracking the extremes in
// 16 bits, rather than absolute values in 32, lets the loop vectorise at full
// width; -32768 only becomes a magnitude at the end.
std::int32_t maxAbsPcm16(const std::uint8_t* p, std::size_t sampleCount) {
    std::int16_t highest = 0;
    std::int16_t lowest = 0;
    for (std::size_t i = 0; i < sampleCount; ++i) {
        std::int16_t value;
        std::memcpy(&value, p + 2 * i, sizeof value);
        highest = std::max(highest, value);
        lowest = std::min(lowest, value);
    }
    return std::max<std::int32_t>(highest, -std::int32_t{lowest});
}

} // namespace

std::vector<double> waveformEnvelope(const WavData& wav, std::int64_t points) {
    return waveformEnvelope(wav, wav.pcmData, points);
}

std::vector<double> waveformEnvelope(const WavData& format, std::span<const std::uint8_t> pcm, std::int64_t points) {
    const FrameCount totalFrames = frameCount(pcm.size(), format.blockAlign);
    if (totalFrames < 1)
        return {};
    const std::int64_t target = std::max<std::int64_t>(32, std::min(points, totalFrames));
    const FrameCount step = std::max<FrameCount>(1, totalFrames / target);
    if (format.bitsPerSample / 8 == 0)
        return {};

    const SampleKind kind = sampleKind(format);
    const bool contiguousPcm16 = std::endian::native == std::endian::little && kind == SampleKind::pcm16
                                 && format.blockAlign == 2u * format.channels;

    std::vector<double> envelope;
    envelope.reserve(static_cast<std::size_t>(target));
    for (FrameIndex start = 0; start < totalFrames; start += step) {
        const FrameIndex end = std::min(start + step, totalFrames);
        float peak = 0.0f;
        if (contiguousPcm16) {
            const auto samples = static_cast<std::size_t>(end - start) * format.channels;
            const auto offset = static_cast<std::size_t>(start) * format.blockAlign;
            peak = static_cast<float>(maxAbsPcm16(pcm.data() + offset, samples)) / 32767.0f;
        } else if (kind != SampleKind::silent) {
            for (FrameIndex f = start; f < end; ++f)
                peak = std::max(peak, frameMagnitude(format, kind, pcm.data(), pcm.size(), f));
        }
        envelope.push_back(static_cast<double>(std::min(peak, 1.0f)));
    }
    return envelope;
}

} // namespace marquetry::audio
