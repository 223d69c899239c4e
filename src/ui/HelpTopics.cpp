#include "ui/HelpTopics.hpp"

namespace marquetry::ui {

namespace {

using Style = HelpBlock::Style;

HelpBlock block(Style style, QString text, bool secondary = false, int extraSpaceAbove = 0) {
    return HelpBlock{style, std::move(text), secondary, extraSpaceAbove};
}

HelpBlock body(QString text) { return block(Style::body, std::move(text)); }

HelpBlock title(HelpTopic topic) { return block(Style::title, helpTopicTitle(topic)); }

HelpPage welcomePage() {
    return {12,
            {
                block(Style::header, {}),
                block(Style::largeTitle, QStringLiteral("Welcome to Marquetry")),
                block(Style::headline, QStringLiteral("Version v" MARQUETRY_VERSION), true),
                block(Style::title3,
                      QStringLiteral("Marquetry turns one or more drum loops into playable break variations, with "
                                     "fast generation, in-context auditioning and selective export.")),
                block(Style::body,
                      QStringLiteral("Use this guide from top to bottom once, then jump directly to topics from the "
                                     "left sidebar."),
                      true),
            }};
}

HelpPage getStartedPage() {
    return {8,
            {
                title(HelpTopic::getStarted),
                body(QStringLiteral("1. Choose your Source Folder.")),
                body(QStringLiteral("2. Choose your Output Folder.")),
                body(QStringLiteral("3. Select a source loop in the left list.")),
                body(QStringLiteral("4. Set Slices, Variations, Chop Model, and optional Seed.")),
                body(QStringLiteral("5. Click Generate.")),
                body(QStringLiteral("6. Audition loops by clicking source/generated waveforms.")),
                body(QStringLiteral("7. Export selected variations.")),
            }};
}

HelpPage mainInterfacePage() {
    HelpPage page{10, {title(HelpTopic::mainInterface)}};
    const auto section = [&page](const char* heading, std::initializer_list<const char*> paragraphs) {
        page.blocks.push_back(block(Style::headline, QString::fromUtf8(heading)));
        for (const char* paragraph : paragraphs)
            page.blocks.push_back(body(QString::fromUtf8(paragraph)));
    };
    section("Source Folder",
            {"Set the location used to discover source WAV loops. Use Choose to select the directory and Refresh to "
             "rescan file contents. Selecting a source file from the left list loads its waveform immediately."});
    section("Engine Controls",
            {"Generate controls output creation. Slices sets target chop density, Variations defines how many loops "
             "are produced, Chop Model selects rhythmic behavior, Mashup Mode pools slices from multiple loops, Seed "
             "controls repeatability, and Master Fader controls preview playback volume."});
    section("Seed",
            {"Seed is an optional randomization key. If you reuse the same source material, settings, and Seed value, "
             "Marquetry will generate the same variation sequence again. Changing Seed gives a new result profile. "
             "Leaving Seed blank uses time-based randomness for fresh output each run.",
             "When Chop Model is set to Glitch, a Glitch Amount control appears to set effect intensity."});
    section("Source and Generated Panels",
            {"The Source Loop Waveform remains fixed and always visible while you work. Generated Variations are shown "
             "below in a scrollable section, each with a selectable export checkbox and a click-to-toggle looping "
             "preview."});
    section("Source List",
            {"Click a loop name to select the primary source. In Mashup Mode, include/exclude files using the row "
             "checkbox to build a pooled slice set. This allows hybrid generation from multiple source loops without "
             "changing the main selection workflow."});
    section("Transport and Status",
            {"Playback is intentionally single-stream: one source or one generated loop at a time to keep auditioning "
             "clear. Use Stop Playback for immediate reset. The bottom status line reports generation, export, and "
             "runtime messages."});
    section("Export Workflow",
            {"Generation creates in-app previews first. Nothing is written to disk until Export Selected is used. This "
             "keeps experimentation non-destructive and gives precise control over what is actually rendered."});
    return page;
}

HelpPage chopModelsPage() {
    struct Entry {
        const char* heading;
        const char* paragraph;
    };
    static constexpr Entry entries[] = {
        {"Grid", "Grid is the most stable model. It uses evenly spaced slice regions and reshuffles with controlled "
                 "movement. If you want clear bar structure, dependable phrasing, and results that drop into a mix "
                 "quickly, start here."},
        {"Transient", "Transient follows energy changes in the source and favors attack points over fixed spacing. "
                      "This keeps hits feeling intact and often produces edits that sound more 'played' than strictly "
                      "programmed."},
        {"Dice", "Dice introduces chance-led duration weighting and phrase shifts. It allows unusual spacing and "
                 "asymmetry on purpose, useful when you want less predictable rhythmic behavior and exploratory "
                 "outcomes."},
        {"Swarm", "Swarm pushes a denser stochastic approach. Expect clustered activity, abrupt contour changes, and "
                  "mathematically skewed rhythmic distribution that can feel architectural and intense."},
        {"Glitch", "Glitch adds digital-style disruption on top of slicing. In this mode, slices can be pitch-shifted "
                   "up/down, micro-detuned, stutter-repeated, and occasionally reversed for textural fracture and "
                   "electronic instability."},
        {"Pivot", "Pivot favors fast pivots, short repeated figures, and aggressive redirection. It is useful for "
                  "high-pressure edits where compact fragments and sharp transitions are the point."},
        {"Interlock", "Interlock leans into interlocking cycle lengths and offset recurrences. Patterns evolve in less "
                      "obvious ways over time, producing machine-precise but non-linear groove behavior."},
        {"Drift", "Drift emphasizes motif memory and slow drift. It tends to hold familiar fragments and mutate them "
                  "gently, giving smoother movement and a more restrained feel."},
        {"Momentum", "Momentum is built around forward momentum and phrase punctuation. It keeps progression clear "
                     "while adding useful end-of-phrase fills, making it strong for energetic transitions."},
    };
    HelpPage page{8, {title(HelpTopic::chopModels)}};
    for (const Entry& entry : entries) {
        const int extra = page.blocks.size() == 1 ? 0 : 4;
        page.blocks.push_back(block(Style::headline, QString::fromUtf8(entry.heading), false, extra));
        page.blocks.push_back(body(QString::fromUtf8(entry.paragraph)));
    }
    page.blocks.push_back(block(Style::body,
                                QStringLiteral("These models are original rhythmic interpretations shaped by broader "
                                               "electronic traditions; they are intended as respectful influence, not "
                                               "direct replication of any specific artist."),
                                true, 6));
    return page;
}

HelpPage mashupModePage() {
    return {8,
            {
                title(HelpTopic::mashupMode),
                body(QStringLiteral("Enable Mashup Mode to pool slices from multiple source loops.")),
                body(QStringLiteral("Check source files in the left list to include them.")),
                body(QStringLiteral("If none are checked, the selected source loop is used.")),
            }};
}

HelpPage playbackPage() {
    return {8,
            {
                title(HelpTopic::playback),
                body(QStringLiteral("Click the source waveform to toggle source loop playback.")),
                body(QStringLiteral("Click any generated waveform to toggle that loop.")),
                body(QStringLiteral("Only one loop preview plays at a time.")),
                body(QStringLiteral("Use Master Fader to control preview volume.")),
                body(QStringLiteral("Use Stop Playback for immediate stop.")),
            }};
}

HelpPage exportPage() {
    return {8,
            {
                title(HelpTopic::export_),
                body(QStringLiteral("Select the generated loops you want using checkboxes.")),
                body(QStringLiteral("Use Select All / Select None for quick selection.")),
                body(QStringLiteral("Export Selected writes WAV files to Output Folder.")),
                body(QStringLiteral("File names use the pattern <stem>_mqtry_<model>NN.wav, for example "
                                    "AmenBreak170_mqtry_pivot03.wav.")),
            }};
}

HelpPage licenseTermsPage() {
    return {10,
            {
                title(HelpTopic::licenseTerms),
                body(QStringLiteral("Marquetry is free software under the GNU General Public License, version 2 or "
                                    "(at your option) any later version. In short:")),
                body(QStringLiteral("1. You may run Marquetry for any purpose.")),
                body(QStringLiteral("2. You may study how it works and change it; its source code is yours to have "
                                    "with every copy.")),
                body(QStringLiteral("3. You may give away or sell copies, changed or not, if you pass on the same "
                                    "freedoms under the same licence, with the source code.")),
                body(QStringLiteral("4. Marquetry comes without warranty of any kind, express or implied, including "
                                    "fitness for a particular purpose, as far as the law permits.")),
                body(QStringLiteral("5. You are responsible for holding the rights to every recording you load, "
                                    "slice or export with Marquetry.")),
                body(QStringLiteral("6. Loops you generate from material you own or are licensed to use are yours, "
                                    "including for commercial releases; the licence of the program does not cover "
                                    "them.")),
                body(QStringLiteral("7. This is a beta release: features and file formats may change in later "
                                    "versions.")),
                block(Style::body,
                      QStringLiteral("The licence's full text comes with every copy of Marquetry: the file "
                                     "LICENSE, installed as share/doc/marquetry/copyright."),
                      true),
            }};
}

HelpPage optionsHistoryShortcutsPage() {
    HelpPage page{8, {title(HelpTopic::optionsHistoryShortcuts)}};
    const auto section = [&page](const char* heading, std::initializer_list<const char*> paragraphs) {
        page.blocks.push_back(block(Style::headline, QString::fromUtf8(heading), false, 4));
        for (const char* paragraph : paragraphs)
            page.blocks.push_back(body(QString::fromUtf8(paragraph)));
    };
    section("Adding Loops",
            {"Import... above the source list converts audio files of any common format (AIFF, FLAC, MP3, Ogg and "
             "more) into the Source Folder as WAV files. Dropping files from a file manager onto the source list "
             "does the same. The first new loop is selected; while variations are shown, the new loops are only "
             "added to the list, so the variations stay.",
             "Drag the handle between the source list and the waveform to widen the list; a name too long for it "
             "ends in \u2026, and resting the pointer on it shows the whole path. A file the reader refuses is "
             "marked in red and cannot be checked for the Mashup pool."});
    section("Sound Options",
            {"The Sound row under the faders holds options that change the sound of a run. All of them are off "
             "by default: without them the same settings and Seed give the same bytes as always.",
             "Smooth joins fades every slice in and out over the milliseconds beside it, so that joins and the loop "
             "seam do not click.",
             "Length as cut keeps each variation as long as its slices add up to. Trim to loop cuts it, or pads it "
             "with silence, to exactly the selected loop's length, so it sits on a DAW's bar grid; Stretch to loop "
             "changes its speed to that length and keeps its pitch.",
             "Match formats converts the checked loops of a Mashup to the selected loop's channels, bit depth and "
             "sample rate before they are sliced; without it, \"Formats differ\" under Mashup Mode warns that they "
             "were pooled as raw bytes. Match tempo stretches them to the selected loop's tempo.",
             "Each loop's tempo and length in bars show beside its name and under the waveform. If the tempo found "
             "is wrong, type the right one in the BPM field beside the waveform; it holds for this session."});
    section("Export Options",
            {"Write manifest: Export Selected also writes a JSON file describing the run (its settings, the seed it "
             "used and every source's SHA-256), from which marquetry-cli replay writes the same files again.",
             "Tempo tags: each exported file also carries the loop's tempo and beats, a loop over the whole file and "
             "a marker at the start of every slice, so a DAW sets the clip to its tempo and a sampler shows the "
             "slices.",
             "Slice kit: Export Selected also writes, into the kit folder inside the Output Folder, one WAV per slice "
             "the ticked loops use, an SFZ instrument playing slice 1 on C1 and each next slice a semitone up, and a "
             "MIDI file per loop that plays it from the kit. Load the instrument on a track and drag a MIDI file "
             "onto it to hear that loop; move its notes to take it further.",
             "Drag a variation's waveform, or the source waveform, out of the window onto a DAW track, a sampler "
             "or a folder to hand over that loop as Export Selected would write it, Tempo tags included; nothing is "
             "written into the Output Folder. A click still plays it.",
             "When a file exists: Replace overwrites a file of the same name in the Output Folder; Keep both writes "
             "the new file as NAME-2.wav, NAME-3.wav, ... and never touches an existing file. A file that Replace "
             "replaces goes to the Trash, where you can restore it; where the Trash cannot take it, it stays beside "
             "the new one as NAME-2.wav. An export writes all its files or none: a full disk or a folder that "
             "cannot be written leaves nothing behind, and a loop the run was made from is never written over.",
             "What the status line has no room for stays in a yellow bar under it until you click Dismiss: what an "
             "export left out and why, loops of other formats pooled as raw bytes, and the loop a Mashup stopped "
             "at."});
    section("History",
            {"Every successful Generate is kept for this session. Back (Ctrl+Z) and Forward (Ctrl+Shift+Z), or the "
             "two arrows beside Generate, bring back the variations of an earlier run with their ticks, also after "
             "choosing another source emptied the list.",
             "Going back generates the run again from its settings and the seed it used, so the variations are the "
             "same, byte for byte, and sets the controls to those settings. If a source file has changed since, the "
             "status line names it and nothing else changes."});
    section("Keyboard Shortcuts",
            {"Space: play or stop the source waveform, or the variation, that has the keyboard focus.",
             "Escape: Stop Playback (Playback menu). In the help window, Escape or Ctrl+W closes it.",
             "While a run goes, Generate reads Cancel and a bar beside the status line counts the variations "
             "done; Cancel, Escape or closing the window stops the run and keeps the variations you had.",
             "Up and Down: the source above or below in the list, or the variation above or below. Home and End: "
             "the first or the last; Page Up and Page Down: a page of rows up or down. A letter: the first source "
             "whose name begins with it.",
             "Return on a variation: tick or untick it for export.",
             "Ctrl+Return: Generate; the focus then goes to the first new variation. Ctrl+E: Export Selected. "
             "Ctrl+Q: Quit. Ctrl+Shift+?: Marquetry Help."});
    return page;
}

HelpPage troubleshootingPage() {
#ifdef Q_OS_MACOS
    const QString noAudio = QStringLiteral("No audio: verify macOS output and raise Master Fader.");
#else
    const QString noAudio = QStringLiteral("No audio: verify your system's audio output and raise Master Fader.");
#endif
    return {8,
            {
                title(HelpTopic::troubleshooting),
                body(QStringLiteral("No files listed: check Source Folder path and click Refresh.")),
                body(noAudio),
                body(QStringLiteral("Export failed: check output folder write permissions.")),
                body(QStringLiteral("Menus missing: click the Marquetry window so the app is active.")),
            }};
}

} // namespace

const std::array<HelpTopic, 10>& allHelpTopics() {
    static constexpr std::array<HelpTopic, 10> topics{
        HelpTopic::welcome,    HelpTopic::getStarted, HelpTopic::mainInterface,
        HelpTopic::chopModels, HelpTopic::mashupMode, HelpTopic::playback,
        HelpTopic::export_,    HelpTopic::licenseTerms, HelpTopic::troubleshooting,
        HelpTopic::optionsHistoryShortcuts,
    };
    return topics;
}

QString helpTopicTitle(HelpTopic topic) {
    switch (topic) {
    case HelpTopic::welcome: return QStringLiteral("Welcome");
    case HelpTopic::getStarted: return QStringLiteral("Get Started");
    case HelpTopic::mainInterface: return QStringLiteral("Main Interface");
    case HelpTopic::chopModels: return QStringLiteral("Chop Models");
    case HelpTopic::mashupMode: return QStringLiteral("Mashup Mode");
    case HelpTopic::playback: return QStringLiteral("Playback");
    case HelpTopic::export_: return QStringLiteral("Export");
    case HelpTopic::licenseTerms: return QStringLiteral("License & Terms");
    case HelpTopic::troubleshooting: return QStringLiteral("Troubleshooting");
    case HelpTopic::optionsHistoryShortcuts: return QStringLiteral("Options, History & Shortcuts");
    }
    return {};
}

HelpPage helpPage(HelpTopic topic) {
    switch (topic) {
    case HelpTopic::welcome: return welcomePage();
    case HelpTopic::getStarted: return getStartedPage();
    case HelpTopic::mainInterface: return mainInterfacePage();
    case HelpTopic::chopModels: return chopModelsPage();
    case HelpTopic::mashupMode: return mashupModePage();
    case HelpTopic::playback: return playbackPage();
    case HelpTopic::export_: return exportPage();
    case HelpTopic::licenseTerms: return licenseTermsPage();
    case HelpTopic::troubleshooting: return troubleshootingPage();
    case HelpTopic::optionsHistoryShortcuts: return optionsHistoryShortcutsPage();
    }
    return {};
}

} // namespace marquetry::ui
