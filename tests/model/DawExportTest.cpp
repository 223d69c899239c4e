// What a musician takes into other tools: tags inside the exported files,
// and a slice kit whose MIDI files play the variations back. The MIDI files
// are read by an independent parser (mido), never by our own writer.
#include "Fakes.hpp"

#include "audio/WavWriter.hpp"
#include "chop/ChopModel.hpp"
#include "model/DawExport.hpp"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdio>
#include <sstream>

namespace marquetry::model::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct MidiNote {
    std::int64_t start = 0; // ticks
    std::int64_t length = 0;
    int note = 0;
};

struct ParsedMidi {
    int type = -1;
    int ticksPerBeat = 0;
    std::int64_t microsPerQuarter = 0;
    int beatsPerBar = 0, beatUnit = 0; // the time signature
    std::vector<MidiNote> notes;
};

ParsedMidi parseWithMido(const std::string& path) {
    const std::string script =
        "import sys, mido\n"
        "f = mido.MidiFile(sys.argv[1])\n"
        "print(f.type, f.ticks_per_beat, len(f.tracks))\n"
        "t = 0; on = {}\n"
        "for m in f.tracks[0]:\n"
        "    t += m.time\n"
        "    if m.type == 'set_tempo': print('tempo', m.tempo)\n"
        "    elif m.type == 'time_signature': print('meter', m.numerator, m.denominator)\n"
        "    elif m.type == 'note_on' and m.velocity > 0: on[m.note] = t\n"
        "    elif m.type in ('note_off', 'note_on'): print('note', on.pop(m.note), t - 0, m.note)\n";
    // Debian's interpreter, where python3-mido is installed, whatever else is on PATH.
    const std::string command = "/usr/bin/python3 -c \"$MIDO_SCRIPT\" '" + path + "'";
    ::setenv("MIDO_SCRIPT", script.c_str(), 1);
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string text;
    char buffer[4096];
    while (pipe != nullptr && std::fgets(buffer, sizeof buffer, pipe) != nullptr)
        text += buffer;
    const int status = pipe == nullptr ? -1 : ::pclose(pipe);
    EXPECT_EQ(status, 0) << "mido could not read " << path;
    ParsedMidi parsed;
    std::istringstream in(text);
    int tracks = 0;
    in >> parsed.type >> parsed.ticksPerBeat >> tracks;
    EXPECT_EQ(tracks, 1);
    std::string word;
    while (in >> word) {
        if (word == "tempo") {
            in >> parsed.microsPerQuarter;
        } else if (word == "meter") {
            in >> parsed.beatsPerBar >> parsed.beatUnit;
        } else {
            MidiNote note;
            std::int64_t end = 0;
            in >> note.start >> end >> note.note;
            note.length = end - note.start;
            parsed.notes.push_back(note);
        }
    }
    std::sort(parsed.notes.begin(), parsed.notes.end(),
              [](const MidiNote& a, const MidiNote& b) { return a.start < b.start; });
    return parsed;
}

class DawExport : public ModelTest {
protected:
    AppModel& withVariations(chop::ChopModel chopModel, std::int64_t count, const std::string& loop = "amen_s16.wav") {
        addLoop("a.wav", loop);
        AppModel& m = start();
        m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chopModel; });
        m.changeSettings([&](model::RunSettings& s) { s.plan.variationCount = count; });
        m.changeSettings([&](model::RunSettings& s) { s.seedText = "7"; });
        m.setOutputDir(home + "/out");
        generate();
        return m;
    }
};

TEST_F(DawExport, TaggedFilesCarryTheTempoAndACueAtEverySliceAndStillReadBack) {
    AppModel& m = withVariations(chop::ChopModel::grid, 3);
    const auto tempo = m.tempoFor(*m.selectedFile());
    ASSERT_TRUE(usableTempo(tempo));
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.tags = true; });
    EXPECT_EQ(settings.string("marquetry.option.exportTags"), "true");
    const auto outcome = m.exportSelected();
    ASSERT_TRUE(outcome.exported) << m.status();
    EXPECT_EQ(m.status(), "Exported 3 loop(s) to " + home + "/out");
    for (std::size_t i = 0; i < 3; ++i) {
        const GeneratedLoop& loop = m.generatedLoops()[i];
        const audio::Bytes file = audio::readWholeFile(outcome.files[i]);
        EXPECT_EQ(file, m.exportedBytes(loop));
        EXPECT_EQ(audio::parseWav(file).pcmData, loop.pcmData);
        const audio::LoopTags tags = loopTagsFor(loop.pcmData.size(), loop.placements, *m.sourceWavData(), *tempo);
        EXPECT_EQ(tags.cues.size(), loop.placements.size());
        EXPECT_EQ(tags.cues.front().frame, 0);
        EXPECT_EQ(tags.cues.front().label.substr(0, 6), "slice ");
        EXPECT_EQ(file.size(), 44 + loop.pcmData.size()
                                   + audio::loopTagChunks(tags, *m.sourceWavData(), 0).size());
    }
    // Off again: the plain file, byte for byte.
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.tags = false; });
    m.exportSelected();
    EXPECT_EQ(audio::readWholeFile(outcome.files[0]),
              audio::buildWavFileData(*m.sourceWavData(), m.generatedLoops()[0].pcmData));
}

TEST_F(DawExport, ADragCarriesWhatExportWouldWriteAndAFailedOneSaysWhy) {
    AppModel& m = withVariations(chop::ChopModel::grid, 2);
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.tags = true; });
    const std::string folder = home + "/cache/drag";
    const GeneratedLoop& loop = m.generatedLoops()[1];
    const auto variation = m.writeDragFile(playback::PlaybackTarget::generated(loop.id), folder);
    ASSERT_TRUE(variation) << m.status();
    EXPECT_EQ(*variation, folder + "/" + loop.name);
    EXPECT_EQ(audio::readWholeFile(*variation), m.exportedBytes(loop));

    // The source goes out under its own name, tagged at its own tempo, with
    // no slices to mark.
    const auto source = m.writeDragFile(playback::PlaybackTarget::source(), folder);
    ASSERT_TRUE(source) << m.status();
    EXPECT_EQ(*source, folder + "/a.wav");
    const audio::Bytes file = audio::readWholeFile(*source);
    EXPECT_EQ(file, m.exportedSourceBytes());
    EXPECT_EQ(audio::parseWav(file).pcmData, m.sourceWavData()->pcmData);
    const audio::WavData& format = *m.sourceWavData();
    const audio::LoopTags tags = loopTagsFor(format.pcmData.size(), {}, format, *m.tempoFor(*m.selectedFile()));
    EXPECT_TRUE(tags.cues.empty());
    const audio::FrameCount frames = audio::frameCount(format.pcmData.size(), format.blockAlign);
    EXPECT_EQ(file, audio::buildWavFileData(format, format.pcmData, audio::loopTagChunks(tags, format, frames)));
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.tags = false; });
    EXPECT_EQ(m.exportedSourceBytes(), audio::buildWavFileData(format, format.pcmData));
    EXPECT_FALSE(fs::exists(home + "/out")) << "a drag writes nothing into the Output folder";

    const std::string status = m.status();
    EXPECT_FALSE(m.writeDragFile(playback::PlaybackTarget::generated(playback::Uuid{}), folder));
    EXPECT_EQ(m.status(), status) << "an unknown variation is no failure to report";
    addFile("blocked", audio::Bytes{1}, home);
    EXPECT_FALSE(m.writeDragFile(playback::PlaybackTarget::source(), home + "/blocked/drag"));
    EXPECT_THAT(m.status(), HasSubstr("Drag failed: "));
}

TEST_F(DawExport, AnUnknownTempoWritesPlainFilesAndNoKitAndSaysSo) {
    addFile("a.wav", audio::buildWavFileData(audio::test::record(1, 1, 2, 16), audio::Bytes(2 * 44100, 0)));
    AppModel& m = start();
    m.setOutputDir(home + "/out");
    generate();
    ASSERT_FALSE(m.generatedLoops().empty()) << m.status();
    ASSERT_FALSE(usableTempo(m.tempoFor(*m.selectedFile())));
    m.changeSettings([&](model::RunSettings& s) {
        s.exportOptions.tags = true;
        s.exportOptions.kit = true;
    });
    const auto outcome = m.exportSelected();
    ASSERT_TRUE(outcome.exported);
    EXPECT_EQ(m.status(), "Exported 10 loop(s) to " + home
                              + "/out; the loop's tempo is unknown, so no tags and no slice kit were written.");
    EXPECT_EQ(m.warning(), "Exported, but the loop's tempo is unknown, so no tags and no slice kit were written. Type "
                           "the loop's tempo beside its waveform and export again.");
    m.dismissWarning();
    EXPECT_EQ(m.warning(), "");
    EXPECT_EQ(audio::readWholeFile(outcome.files[0]),
              audio::buildWavFileData(*m.sourceWavData(), m.generatedLoops()[0].pcmData));
    EXPECT_FALSE(fs::exists(home + "/out/kit"));
}

// The kit's promise, for every chop model: each MIDI file, read by another
// parser, plays the kit's slices in an order that gives back its variation
// byte for byte, each note starting where its slice was placed (to the
// nearest tick) and lasting as long.
TEST_F(DawExport, EveryVariationPlaysBackFromTheKitByteForByte) {
    for (const chop::ChopModel chopModel : chop::allChopModels) {
        SCOPED_TRACE(chop::label(chopModel));
        model.reset();
        fs::remove_all(home + "/out/kit");
        AppModel& m = withVariations(chopModel, 3);
        const auto tempo = m.tempoFor(*m.selectedFile());
        ASSERT_TRUE(usableTempo(tempo));
        m.changeSettings([](model::RunSettings& s) { s.exportOptions.kit = true; });
        const auto outcome = m.exportSelected();
        ASSERT_TRUE(outcome.exported) << m.status();
        EXPECT_THAT(m.status(), Not(HasSubstr("tempo")));
        const std::string stem = variationStem("a.wav", chopModel);
        const audio::WavData& format = *m.sourceWavData();
        std::vector<audio::Bytes> slices;
        for (int k = 1; fs::exists(home + "/out/kit/" + stem + "_slice" + (k < 10 ? "0" : "") + std::to_string(k) + ".wav"); ++k)
            slices.push_back(audio::loadWav(home + "/out/kit/" + stem + "_slice" + (k < 10 ? "0" : "")
                                            + std::to_string(k) + ".wav").pcmData);
        ASSERT_FALSE(slices.empty());
        EXPECT_TRUE(fs::exists(home + "/out/kit/" + stem + ".sfz"));
        for (const GeneratedLoop& loop : m.generatedLoops()) {
            const std::string midiName = loop.name.substr(0, loop.name.size() - 4) + ".mid";
            const ParsedMidi midi = parseWithMido(home + "/out/kit/" + midiName);
            EXPECT_EQ(midi.type, 0);
            EXPECT_EQ(midi.ticksPerBeat, 480);
            EXPECT_EQ(midi.microsPerQuarter, std::llround(60e6 / tempo->bpm));
            EXPECT_EQ(midi.beatsPerBar, 4);
            EXPECT_EQ(midi.beatUnit, 4);
            ASSERT_EQ(midi.notes.size(), loop.placements.size());
            audio::Bytes rendered;
            for (std::size_t i = 0; i < midi.notes.size(); ++i) {
                const MidiNote& note = midi.notes[i];
                ASSERT_GE(note.note, firstKitNote);
                ASSERT_LT(static_cast<std::size_t>(note.note - firstKitNote), slices.size());
                const audio::Bytes& slice = slices[static_cast<std::size_t>(note.note - firstKitNote)];
                const chop::Placement& placement = loop.placements[i];
                const double ticksPerFrame = tempo->bpm * 480 / (60.0 * format.sampleRate);
                const auto frameOf = [&](std::int64_t byte) { return static_cast<double>(byte / format.blockAlign); };
                EXPECT_NEAR(static_cast<double>(note.start), frameOf(placement.byteOffset) * ticksPerFrame, 0.5);
                EXPECT_NEAR(static_cast<double>(note.length),
                            frameOf(static_cast<std::int64_t>(slice.size())) * ticksPerFrame, 1.0);
                rendered.insert(rendered.end(), slice.begin(), slice.end());
            }
            EXPECT_TRUE(rendered == loop.pcmData) << loop.name;
        }
    }
}

// A loop in three: its tags and the kit's MIDI files say 3/4.
TEST_F(DawExport, TagsAndKitCarryAMeterOfThree) {
    AppModel& m = withVariations(chop::ChopModel::grid, 1);
    const GeneratedLoop& loop = m.generatedLoops()[0];
    const chop::TempoEstimate inThree{m.tempoFor(*m.selectedFile())->bpm, 3, 1, 3};
    EXPECT_EQ(loopTagsFor(loop.pcmData.size(), loop.placements, *m.sourceWavData(), inThree).beatsPerBar, 3);
    int midiFiles = 0;
    for (const KitFile& file : buildSliceKit({&loop}, *m.sourceWavData(), "k", inThree))
        if (file.name.ends_with(".mid")) {
            const ParsedMidi midi = parseWithMido(audio::test::writeFile(home + "/" + file.name, file.bytes));
            EXPECT_EQ(midi.beatsPerBar, 3);
            EXPECT_EQ(midi.beatUnit, 4);
            EXPECT_EQ(midi.notes.size(), loop.placements.size());
            ++midiFiles;
        }
    EXPECT_EQ(midiFiles, 1);
}

// The window's option puts the kit in the output folder; under Keep both a
// second kit takes one number for all its files, and its instrument names
// its own slices, never the first kit's.
TEST_F(DawExport, TheKitOptionWritesIntoTheOutputFolderAndKeepBothNumbersAWholeKit) {
    AppModel& m = withVariations(chop::ChopModel::grid, 2);
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.kit = true; });
    EXPECT_EQ(settings.string("marquetry.option.exportKit"), "true");
    m.changeSettings([&](model::RunSettings& s) { s.exportOptions.keepExisting = true; });
    const std::string kit = home + "/out/kit";
    const auto first = m.exportSelected();
    ASSERT_TRUE(first.exported) << m.status();
    EXPECT_EQ(m.status(), "Exported 2 loop(s) to " + home + "/out and a slice kit to " + kit);
    EXPECT_EQ(first.kitFiles.front(), kit + "/a_mqtry_grid_slice01.wav");

    const auto second = m.exportSelected();
    ASSERT_TRUE(second.exported) << m.status();
    ASSERT_EQ(second.kitFiles.size(), first.kitFiles.size());
    for (std::size_t i = 0; i < first.kitFiles.size(); ++i) {
        const fs::path name = fs::path(first.kitFiles[i]).filename();
        EXPECT_EQ(fs::path(second.kitFiles[i]).filename(),
                  name.stem().string() + "-2" + name.extension().string());
        if (name.extension() != ".sfz") {
            EXPECT_EQ(audio::readWholeFile(first.kitFiles[i]), audio::readWholeFile(second.kitFiles[i])) << name;
        }
    }
    const std::string sfz = audio::test::readText(kit + "/a_mqtry_grid-2.sfz");
    EXPECT_THAT(sfz, HasSubstr("sample=a_mqtry_grid_slice01-2.wav key=36\n"));
    EXPECT_THAT(sfz, Not(HasSubstr("slice01.wav")));
}

TEST_F(DawExport, AKitFolderThatCannotBeMadeFailsBeforeAnyFileIsWritten) {
    AppModel& m = withVariations(chop::ChopModel::grid, 2);
    addFile("kit", audio::Bytes{1}, home + "/out");
    m.changeSettings([](model::RunSettings& s) { s.exportOptions.kit = true; });
    const auto outcome = m.exportSelected();
    EXPECT_FALSE(outcome.exported);
    EXPECT_THAT(m.status(), HasSubstr("Export failed: "));
    EXPECT_THAT(m.status(), HasSubstr("kit"));
    EXPECT_THAT(namesIn(home + "/out"), ::testing::ElementsAre("kit"));
}

TEST_F(DawExport, AKitOfMoreSlicesThanNotesIsRefusedBeforeAnyFileIsWritten) {
    AppModel& m = withVariations(chop::ChopModel::glitch, 60);
    m.changeSettings([](model::RunSettings& s) { s.exportOptions.kit = true; });
    const auto outcome = m.exportSelected();
    ASSERT_FALSE(outcome.exported) << m.status();
    EXPECT_THAT(m.status(), HasSubstr("Export failed: the slice kit would need "));
    EXPECT_FALSE(fs::exists(home + "/out"));
}

} // namespace
} // namespace marquetry::model::test
