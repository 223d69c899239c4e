#include "UiFakes.hpp"

#include "audio/WavReader.hpp"
#include "model/FileSystem.hpp"
#include "ui/ContentView.hpp"
#include "ui/GeneratedLoopRow.hpp"
#include "ui/SourceList.hpp"
#include "ui/WaveformView.hpp"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDrag>
#include <QDropEvent>
#include <QFileInfo>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollBar>
#include <QSlider>
#include <QSpinBox>
#include <QSplitter>
#include <QStandardPaths>
#include <QToolTip>
#include <QtTest>

#include <map>
#include <utility>

using namespace marquetry;
using ui::GeneratedLoopRow;
using Part = ui::SourceList::Part;
using Field = model::AppModel::Field;

namespace {
// A real FLAC drum break, which only an import makes readable.
const QString amenFlac = QStringLiteral("/usr/share/sonic-pi/samples/loop_amen.flac");
} // namespace

class ContentViewTest : public QObject {
    Q_OBJECT

private slots:
    void controlsWriteTheModelWithinBoundsAndShowIt_data() {
        QTest::addColumn<QString>("control");
        QTest::addColumn<int>("requested");
        QTest::addColumn<double>("stored");
        QTest::addColumn<QString>("shown");
        QTest::newRow("slices below") << "slicesBox" << 3 << 4.0 << "Slices: 4";
        QTest::newRow("slices above") << "slicesBox" << 129 << 128.0 << "Slices: 128";
        QTest::newRow("variations below") << "variationsBox" << 0 << 1.0 << "Variations: 1";
        QTest::newRow("variations above") << "variationsBox" << 1000 << 100.0 << "Variations: 100";
        // Percentages are truncated, never rounded up.
        for (const char* slider : {"glitchSlider", "masterSlider"}) {
            QTest::addRow("%s 0", slider) << slider << 0 << 0.0 << "0%";
            QTest::addRow("%s 0.289", slider) << slider << 289 << 0.289 << "28%";
            QTest::addRow("%s 1", slider) << slider << 1000 << 1.0 << "100%";
        }
    }

    void controlsWriteTheModelWithinBoundsAndShowIt() {
        QFETCH(QString, control);
        QFETCH(int, requested);
        QFETCH(double, stored);
        QFETCH(QString, shown);
        const model::AppModel& m = start({});
        QVERIFY(find(control)->setProperty("value", requested));
        const std::map<QString, double> read = {{"slicesBox", static_cast<double>(m.settings().plan.sliceCount)},
                                                {"variationsBox", static_cast<double>(m.settings().plan.variationCount)},
                                                {"glitchSlider", m.settings().plan.glitchAmount},
                                                {"masterSlider", m.masterVolume()}};
        QCOMPARE(read.at(control), stored);
        const auto* label = view_->findChild<QLabel*>(control + "Value");
        QCOMPARE(label != nullptr ? label->text() : find<QSpinBox>(control)->text(), shown);
    }

    void modelChangesAreShownWithoutEcho() {
        model::AppModel& m = start({});
        std::vector<Field> writes;
        m.subscribe([&writes](const model::AppModel::Change& change) { writes.push_back(change.field); });
        m.changeSettings([&](model::RunSettings& s) { s.plan.sliceCount = 20; });
        m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chop::ChopModel::drift; });
        m.changeSettings([&](model::RunSettings& s) { s.seedText = "abc"; });
        m.setMasterVolume(0.5);
        m.changeSettings([&](model::RunSettings& s) { s.exportOptions.manifest = true; });
        QCOMPARE(find<QSpinBox>("slicesBox")->value(), 20);
        QCOMPARE(find<QComboBox>("chopModelBox")->currentText(), QStringLiteral("Drift"));
        QCOMPARE(find<QLineEdit>("seedField")->text(), QStringLiteral("abc"));
        QCOMPARE(find<QSlider>("masterSlider")->value(), 500);
        QVERIFY(find<QCheckBox>("manifestBox")->isChecked());
        QCOMPARE(writes, (std::vector{Field::settings, Field::settings, Field::settings, Field::masterVolume,
                                      Field::settings}));

        // Typing writes once per key, and the echo of each write is no write.
        writes.clear();
        QTest::keyClicks(find<QLineEdit>("seedField"), "de");
        QCOMPARE(m.settings().seedText, "abcde");
        QCOMPARE(writes, (std::vector{Field::settings, Field::settings}));
    }

    void glitchRowSitsBetweenGenerateAndMasterOnlyForGlitch() {
        model::AppModel& m = start({});
        auto* chopBox = find<QComboBox>("chopModelBox");
        QCOMPARE(layoutIndex("glitchRow"), -1);
        chopBox->setCurrentText(QStringLiteral("Glitch"));
        QCOMPARE(m.settings().plan.chopModel, chop::ChopModel::glitch);
        QCOMPARE(layoutIndex("glitchRow"), layoutIndex("generateRow") + 1);
        QCOMPARE(layoutIndex("masterRow"), layoutIndex("glitchRow") + 1);
        QVERIFY(find("glitchRow")->isVisible());

        find<QSlider>("glitchSlider")->setValue(300);
        chopBox->setCurrentText(QStringLiteral("Pivot"));
        QCOMPARE(layoutIndex("glitchRow"), -1);
        QVERIFY(find("glitchRow")->isHidden());
        QCOMPARE(m.settings().plan.glitchAmount, 0.3);
    }

    // At the smallest size, whatever rows the chop model adds and with a
    // warning shown, every control outside the panels shows whole, the sound
    // and export options above all: the panels give way first.
    void everyControlShowsWholeAtTheSmallestSizeForEveryModel() {
        model::AppModel& m = start();
        platform_->addLoop("c.wav", "amen_u8.wav");
        m.refreshFiles();
        m.setMashupMode(true);
        for (const std::string& path : m.wavFiles())
            m.toggleMashupMembership(path, true);
        click(find("generateButton"));
        platform_->tasks.drain();
        view_->resize(1040, 700);
        const auto shownControls = [this](const QWidget* row) {
            QList<QWidget*> controls = row->findChildren<QWidget*>();
            controls.removeIf([this](const QWidget* control) {
                return !control->isVisibleTo(view_.get()) || control->parentWidget()->inherits("QAbstractSpinBox")
                       || control->parentWidget()->inherits("QComboBox");
            });
            return controls;
        };
        QVERIFY(shownControls(find("soundGroup")).size() >= 6 && shownControls(find("exportOptions")).size() >= 5);
        QVERIFY(find("messageBar")->isVisible());
        for (const chop::ChopModel chopModel : chop::allChopModels) {
            m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chopModel; });
            view_->layout()->activate();
            for (int item = 0; item < view_->layout()->count(); ++item) {
                const QWidget* row = view_->layout()->itemAt(item)->widget();
                if (row == nullptr || row->objectName() == "panels")
                    continue;
                for (QWidget* control : shownControls(row)) {
                    const QRect inView(control->mapTo(view_.get(), QPoint()), control->size());
                    const bool whole = control->visibleRegion().boundingRect() == control->rect();
                    QVERIFY2(whole && view_->rect().contains(inView),
                             qPrintable(QStringLiteral("%1 %2 in %3 with %4")
                                            .arg(control->metaObject()->className(), control->objectName(),
                                                 row->objectName(), chop::label(chopModel).data())));
                }
            }
        }
        // The source list widens from its handle, the rest giving way.
        auto* panels = find<QSplitter>("panels");
        const int before = sourceList()->width();
        QCOMPARE(panels->sizes().at(0), 280);
        QSplitterHandle* handle = panels->handle(1);
        QTest::mousePress(handle, Qt::LeftButton, {}, handle->rect().center());
        QTest::mouseMove(handle, handle->rect().center() + QPoint(120, 0));
        QTest::mouseRelease(handle, Qt::LeftButton, {}, handle->rect().center() + QPoint(120, 0));
        QCOMPARE(sourceList()->width(), before + 120);
    }

    void generateThenSelectionButtonsFollowTheTicks() {
        model::AppModel& m = start();
        auto* generate = find<QPushButton>("generateButton");
        auto* emptyLabel = find<QLabel>("emptyLoopsLabel");
        const auto enabled = [this] {
            return std::tuple(find("selectAllButton")->isEnabled(), find("selectNoneButton")->isEnabled(),
                              find("exportButton")->isEnabled());
        };
        QCOMPARE(emptyLabel->text(), QStringLiteral("No generated loops yet. Click Generate."));
        QVERIFY(emptyLabel->isVisible());
        QCOMPARE(enabled(), std::tuple(false, false, false));

        find<QSpinBox>("variationsBox")->setValue(4);
        click(generate);
        QCOMPARE(generate->text(), QStringLiteral("Cancel"));
        auto* bar = find<QProgressBar>("generationProgress");
        QVERIFY(m.isGenerating() && generate->isEnabled() && bar->isVisible());
        QCOMPARE(std::pair(bar->value(), bar->maximum()), std::pair(0, 4));
        // The workers have finished, but only the hand-back publishes: until
        // it runs, the window reads the progress on its own.
        while (platform_->tasks.runBackground()) {
        }
        QTRY_COMPARE(find<QLabel>("statusLine")->text(), QStringLiteral("Generating 4 of 4..."));
        QCOMPARE(bar->value(), 4);
        platform_->tasks.drain();
        QCOMPARE(generate->text(), QStringLiteral("Generate"));
        QVERIFY(generate->isEnabled() && bar->isHidden());

        const QList<GeneratedLoopRow*> rows = loopRows();
        const auto ticked = [&rows] {
            return std::count_if(rows.begin(), rows.end(), [](auto* row) { return row->checkBox()->isChecked(); });
        };
        QCOMPARE(rows.size(), 4);
        QVERIFY(emptyLabel->isHidden());
        QCOMPARE(enabled(), std::tuple(true, true, true));
        std::vector<Field> writes;
        m.subscribe([&writes](const model::AppModel::Change& change) { writes.push_back(change.field); });
        click(find("selectNoneButton"));
        QCOMPARE(ticked(), 0);
        // Each tick is published as it changes, and nothing else is written.
        QCOMPARE(writes, std::vector<Field>(4, Field::generatedLoops));
        QCOMPARE(enabled(), std::tuple(true, true, false));
        click(rows[2]->checkBox());
        QVERIFY(m.generatedLoops()[2].isSelected && find("exportButton")->isEnabled());
        click(find("selectAllButton"));
        QCOMPARE(ticked(), 4);
        QCOMPARE(loopRows(), rows); // ticks never rebuild the rows

        clickSource("b.wav");
        QVERIFY(emptyLabel->isVisible());
        QCOMPARE(enabled(), std::tuple(false, false, false));
    }

    void seedOfTheRunCanBeReusedForTheSameBytes() {
        model::AppModel& m = start();
        auto* label = find<QLabel>("seedOfRunLabel");
        const int narrowestFolderRow = find("sourceRow")->minimumSizeHint().width();
        QCOMPARE(label->text(), QString());
        QVERIFY(!find("useSeedButton")->isVisible());

        // A blank seed: the clock decides, and the window tells which seed it was.
        click(find("generateButton"));
        platform_->tasks.drain();
        const std::uint64_t seed = m.lastRun()->seed;
        QCOMPARE(label->text(), QStringLiteral("Seed of this run: %1").arg(seed));
        QVERIFY(label->isVisible());
        // The seed shown adds no width to the window: the folder rows set it.
        QVERIFY(find("generateRow")->minimumSizeHint().width() <= narrowestFolderRow);

        std::vector<audio::Bytes> first;
        for (const model::GeneratedLoop& loop : m.generatedLoops())
            first.push_back(loop.pcmData);
        click(find("useSeedButton"));
        QCOMPARE(find<QLineEdit>("seedField")->text(), QString::number(seed));
        platform_->now += 3600;
        click(find("generateButton"));
        platform_->tasks.drain();
        QVERIFY(!m.lastRun()->seedFromClock());
        QCOMPARE(m.generatedLoops().size(), first.size());
        for (std::size_t i = 0; i < first.size(); ++i)
            QVERIFY2(m.generatedLoops()[i].pcmData == first[i], qPrintable(QString("variation %1").arg(i + 1)));
    }

    void exportOptionsAreRememberedAndTheManifestWrittenBesideTheExport() {
        start({"a.wav"});
        click(find("manifestBox"));
        click(find("kitBox"));
        click(find("kitBox"));
        click(find("tagsBox"));
        QVERIFY(view_->model().settings().exportOptions.manifest);
        QVERIFY(view_->model().settings().exportOptions.tags && !view_->model().settings().exportOptions.kit);
        // The next launch, over the same settings, starts with them as left.
        view_ = std::make_unique<ui::ContentView>(platform_->platform(), platform_->audioFileChooser());
        view_->show();
        QVERIFY(find<QCheckBox>("manifestBox")->isChecked());
        QVERIFY(find<QCheckBox>("tagsBox")->isChecked());
        QVERIFY(!find<QCheckBox>("kitBox")->isChecked());
        click(find("tagsBox"));

        find<QSpinBox>("variationsBox")->setValue(2);
        click(find("generateButton"));
        platform_->tasks.drain();
        click(find("exportButton"));
        const QDir output(QString::fromStdString(platform_->outputFolder()));
        QCOMPARE(output.entryList(QDir::Files), (QStringList{"a_mqtry_grid01.wav", "a_mqtry_grid02.wav",
                                                             "a_mqtry_grid_manifest.json"}));
        QVERIFY(!output.exists(QStringLiteral("kit")));
    }

    void smoothJoinsWritesTheFadeLengthAndIsRemembered() {
        const model::AppModel& m = start({});
        auto* box = find<QCheckBox>("joinFadeBox");
        auto* ms = find<QSpinBox>("joinFadeMsBox");
        QVERIFY(!box->isChecked() && !ms->isEnabled());
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{0});
        click(box);
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{5});
        ms->setValue(12);
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{12});
        ms->setValue(80);
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{50});
        click(box);
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{0});
        click(box);
        QCOMPARE(m.settings().plan.joinFadeMs, std::int64_t{50});

        view_ = std::make_unique<ui::ContentView>(platform_->platform(), platform_->audioFileChooser());
        view_->show();
        QVERIFY(find<QCheckBox>("joinFadeBox")->isChecked());
        QCOMPARE(find<QSpinBox>("joinFadeMsBox")->value(), 50);
        QCOMPARE(view_->model().settings().plan.joinFadeMs, std::int64_t{50});
    }

    void soundOptionsReachTheModelAndAreRemembered() {
        const model::AppModel& m = start({});
        auto* fit = find<QComboBox>("fitBox");
        QCOMPARE(fit->currentIndex(), 0);
        QVERIFY(m.settings().plan.fit == chop::FitMode::off && !m.settings().matchFormats && !m.settings().matchTempo);
        fit->setCurrentIndex(2);
        click(find("matchFormatsBox"));
        click(find("matchTempoBox"));
        QVERIFY(m.settings().plan.fit == chop::FitMode::stretch && m.settings().matchFormats && m.settings().matchTempo);

        view_ = std::make_unique<ui::ContentView>(platform_->platform(), platform_->audioFileChooser());
        view_->show();
        QCOMPARE(find<QComboBox>("fitBox")->currentIndex(), 2);
        QVERIFY(find<QCheckBox>("matchFormatsBox")->isChecked() && find<QCheckBox>("matchTempoBox")->isChecked());
        QVERIFY(view_->model().settings().plan.fit == chop::FitMode::stretch);
    }

    // Beside Mashup Mode after a run that pooled loops of other formats as
    // raw bytes, with the whole story in its tooltip; gone once matched.
    void mashupOfOtherFormatsIsFlaggedBesideMashupMode() {
        model::AppModel& m = start({"a.wav", "b.wav"});
        platform_->addLoop("c.wav", "amen_u8.wav");
        m.refreshFiles();
        m.setMashupMode(true);
        for (const std::string& path : m.wavFiles())
            m.toggleMashupMembership(path, true);
        click(find("generateButton"));
        platform_->tasks.drain();
        auto* label = find<QLabel>("formatMismatchLabel");
        QCOMPARE(label->text(), QStringLiteral("Formats differ"));
        QVERIFY(label->toolTip().startsWith(QStringLiteral("c.wav is 8-bit stereo 44100 Hz but a.wav is 16-bit")));
        // Told whole under the status line, until dismissed.
        QVERIFY(find("messageBar")->isVisible());
        QCOMPARE(find<QLabel>("warningLabel")->text(), label->toolTip());
        click(find("dismissWarningButton"));
        QVERIFY(find("messageBar")->isHidden() && m.warning().empty());
        click(find("matchFormatsBox"));
        click(find("generateButton"));
        platform_->tasks.drain();
        QCOMPARE(label->text(), QString());
    }

    void tempoShowsInTheListAndCaptionAndTypingCorrectsIt() {
        model::AppModel& m = start();
        const auto rowTempo = [this](int row) {
            return sourceList()->model()->index(row, 0).data(ui::SourceList::tempoRole).toString();
        };
        const QString amen = QString::fromUtf8("136.9 BPM \u00b7 4/4 \u00b7 1 bar");
        QCOMPARE(find<QLabel>("sourceTempo")->text(), amen);
        QCOMPARE(rowTempo(0), amen);
        QCOMPARE(rowTempo(1), QString()); // not decoded yet

        auto* field = find<QLineEdit>("sourceTempoField");
        field->setFocus();
        QTest::keyClicks(field, "68.45");
        QSignalSpy changed(sourceList()->model(), &QAbstractItemModel::dataChanged);
        QTest::keyClick(field, Qt::Key_Return);
        const QString corrected = QString::fromUtf8("68.5 BPM \u00b7 4/4 \u00b7 0.5 bars");
        QCOMPARE(find<QLabel>("sourceTempo")->text(), corrected);
        QCOMPARE(rowTempo(0), corrected);
        // That row alone is told to repaint.
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed[0][0].toModelIndex().row(), 0);
        QCOMPARE(changed[0][1].toModelIndex().row(), 0);
        QCOMPARE(m.tempoOverrides().at(*m.selectedFile()), 68.45);

        field->clear();
        QTest::keyClicks(field, "fast");
        QTest::keyClick(field, Qt::Key_Return);
        QCOMPARE(m.status(), std::string("Tempo must be from 20 to 999 BPM."));
        QCOMPARE(rowTempo(0), corrected);
        field->clear();
        QTest::keyClick(field, Qt::Key_Return);
        QCOMPARE(rowTempo(0), amen);

        // The meter is corrected beside it, and the run starting now takes it.
        auto* meter = find<QComboBox>("sourceMeterBox");
        meter->setCurrentIndex(meter->findText(QStringLiteral("3/4")));
        const QString inThree = QString::fromUtf8("136.9 BPM \u00b7 3/4 \u00b7 1.33333 bars");
        QCOMPARE(find<QLabel>("sourceTempo")->text(), inThree);
        QCOMPARE(rowTempo(0), inThree);
        QCOMPARE(m.tempoFor(*m.selectedFile())->beatsPerBar, 3);
        click(find("generateButton"));
        platform_->tasks.drain();
        QCOMPARE(m.lastRun()->settings.meterOverrides.at(*m.selectedFile()), 3);
        clickSource("b.wav");
        QCOMPARE(meter->currentText(), QStringLiteral("Meter: estimate"));
        clickSource("a.wav");
        QCOMPARE(meter->currentText(), QStringLiteral("3/4"));
        meter->setCurrentIndex(0);
        QCOMPARE(rowTempo(0), amen);
    }

    void returnInOutputFieldExpandsTilde_data() {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("expands");
        QTest::newRow("tilde folder") << "~/Exports/Breaks" << true;
        QTest::newRow("tilde alone") << "~" << true;
        QTest::newRow("absolute") << "/tmp/marquetry out" << false;
        QTest::newRow("other user") << "~someone/loops" << false;
        QTest::newRow("tilde inside") << "loops/~/x" << false;
    }

    void returnInOutputFieldExpandsTilde() {
        QFETCH(QString, typed);
        QFETCH(bool, expands);
        model::AppModel& m = start({});
        auto* field = find<QLineEdit>("outputField");
        field->clear();
        QTest::keyClicks(field, typed);
        QCOMPARE(QString::fromStdString(m.outputDir()), typed);
        QTest::keyClick(field, Qt::Key_Return);
        const QString expected = expands ? QString::fromStdString(platform_->home()) + typed.mid(1) : typed;
        QCOMPARE(QString::fromStdString(m.outputDir()), expected);
        QCOMPARE(field->text(), expected);
    }

    void poolCheckBoxOnlyInMashupModeAndDoesNotSelect() {
        model::AppModel& m = start({"a.wav", "b.wav", "c.wav"});
        ui::SourceList* list = sourceList();
        const std::string b = platform_->sourceFolder() + "/b.wav";
        QVERIFY(list->partRect(1, Part::pool).isEmpty());
        QVERIFY(!sourceData("b.wav", Qt::CheckStateRole).isValid());
        click(find("mashupModeBox"));
        // At the right end of the row, beside the name.
        const QRect pool = list->partRect(1, Part::pool);
        QCOMPARE(pool.right(), list->viewport()->width() - 1);
        QVERIFY(pool.left() > list->partRect(1, Part::name).right());
        QCOMPARE(sourceData("b.wav", Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        clickSource("b.wav", Part::pool);
        QCOMPARE(m.mashupSourcePaths(), std::set<std::string>{b});
        QCOMPARE(sourceData("b.wav", Qt::CheckStateRole).toInt(), int(Qt::Checked));
        QVERIFY(isSelected("a.wav") && !isSelected("b.wav"));
        // A press that leaves the checkbox before its release ticks nothing,
        // as on any button.
        QTest::mousePress(list->viewport(), Qt::LeftButton, {}, pool.center());
        QTest::mouseRelease(list->viewport(), Qt::LeftButton, {}, list->partRect(1, Part::name).center());
        QCOMPARE(m.mashupSourcePaths(), std::set<std::string>{b});
        QVERIFY(isSelected("a.wav"));

        // Checked pool files are no selection to generate from.
        m.selectFile(std::string("not listed.wav"));
        QVERIFY(!find("generateButton")->isEnabled());

        click(find("mashupModeBox"));
        QVERIFY(list->partRect(1, Part::pool).isEmpty());
        clickSource("b.wav");
        QVERIFY(isSelected("b.wav") && find("generateButton")->isEnabled());
        // The small print under a name selects too.
        clickSource("c.wav", Part::caption);
        QVERIFY(isSelected("c.wav") && !isSelected("b.wav"));
    }

    void progressTicksMoveOnlyThePlayingPlayhead() {
        model::AppModel& m = start();
        click(find("generateButton"));
        platform_->tasks.drain();
        const QList<GeneratedLoopRow*> rows = loopRows();
        auto* source = find<ui::WaveformView>("sourceWaveform");
        const auto tick = [this](double seconds) {
            platform_->players.currentTime = seconds;
            platform_->timers.fire();
        };

        QTest::mouseClick(source, Qt::LeftButton, {}, QPoint(3, 3));
        QCOMPARE(source->playheadProgress(), std::optional(0.25));
        tick(1.0);
        QCOMPARE(source->playheadProgress(), std::optional(0.5));

        click(rows[1]->waveformView());
        QVERIFY(!source->playheadProgress());
        QCOMPARE(rows[1]->stateLabel()->text(), QStringLiteral("Looping"));
        QCOMPARE(rows[0]->stateLabel()->text(), QStringLiteral("Stopped"));
        tick(1.5);
        QCOMPARE(rows[1]->waveformView()->playheadProgress(), std::optional(0.75));
        QVERIFY(!rows[0]->waveformView()->playheadProgress() && !rows[2]->waveformView()->playheadProgress());
        QCOMPARE(loopRows(), rows);

        click(rows[1]->waveformView());
        QVERIFY(!rows[1]->waveformView()->playheadProgress());
        QCOMPARE(m.status(), "Stopped preview.");
    }

    void importButtonConvertsTheChosenFilesAndSelectsTheFirst() {
        model::AppModel& m = start({"a.wav"});
        // Whole even in the smallest window, where the panels are squeezed.
        view_->resize(view_->minimumSize());
        auto* import = find("importButton");
        QCOMPARE(import->visibleRegion().boundingRect(), import->rect());
        click(import); // cancelled
        QCOMPARE(m.status(), "Loaded 1 WAV file(s).");
        platform_->importAnswer = {amenFlac.toStdString()};
        click(import);
        QCOMPARE(find<QLabel>("statusLine")->text(), QStringLiteral("Imported 1 file(s)."));
        QVERIFY(isSelected("loop_amen.wav") && !m.sourceWaveform().empty());
        platform_->importAnswer.clear();
        click(import);
        // The dialog opens at home, then where the last files came from.
        QCOMPARE(platform_->importFoldersAsked,
                 (std::vector<std::string>{platform_->home(), platform_->home(), "/usr/share/sonic-pi/samples"}));

        // With variations on screen, the new loop is only listed: nothing
        // the user made is thrown away.
        click(find("generateButton"));
        platform_->tasks.drain();
        const std::vector<model::GeneratedLoop> made = m.generatedLoops();
        platform_->importAnswer = {amenFlac.toStdString()};
        click(import);
        QCOMPARE(m.status(), "Imported 1 file(s).");
        QVERIFY(m.generatedLoops() == made && loopRows().size() == static_cast<qsizetype>(made.size()));
        QVERIFY(isSelected("loop_amen.wav") && sourceRow("loop_amen-2.wav") >= 0);
    }

    void onlyLocalFilesDroppedOnTheSourceListAreImported() {
        model::AppModel& m = start({"a.wav"});
        // Over the rows, where a drop is taken for the whole column.
        QWidget* target = sourceList()->viewport();
        // The action a drag over the list is granted, and whether its drop
        // is taken; Shift is held, which asks for a move.
        const auto dragAndDrop = [target](const QMimeData& data,
                                          Qt::DropActions offered = Qt::CopyAction | Qt::MoveAction) {
            QDragEnterEvent enter(QPoint(20, 20), offered, &data, Qt::LeftButton, Qt::ShiftModifier);
            QApplication::sendEvent(target, &enter);
            QDropEvent drop(QPointF(20, 20), offered, &data, Qt::LeftButton, Qt::ShiftModifier);
            QApplication::sendEvent(target, &drop);
            return std::pair(enter.isAccepted() ? enter.dropAction() : Qt::IgnoreAction, drop.isAccepted());
        };
        const QUrl flac = QUrl::fromLocalFile(amenFlac);
        const QUrl web(QStringLiteral("https://example.org/loop.flac"));
        QMimeData text, webOnly, mixed, files;
        text.setText(amenFlac);
        webOnly.setUrls({web});
        mixed.setUrls({flac, web});
        files.setUrls({flac});
        for (const auto& [data, offered] : {std::pair(&text, Qt::CopyAction), std::pair(&webOnly, Qt::CopyAction),
                                            std::pair(&mixed, Qt::CopyAction), std::pair(&files, Qt::MoveAction)})
            QCOMPARE(dragAndDrop(*data, offered), std::pair(Qt::IgnoreAction, false));
        QCOMPARE(m.status(), "Loaded 1 WAV file(s).");

        // From a file manager, as a copy even so: the loop comes in, the text
        // file is refused, and the status line says both.
        const QString notes = QString::fromStdString(platform_->home()) + "/notes.txt";
        QFile notesFile(notes);
        QVERIFY(notesFile.open(QIODevice::WriteOnly) && notesFile.write("not a loop") > 0);
        notesFile.close();
        files.setUrls({flac, QUrl::fromLocalFile(notes)});
        QCOMPARE(dragAndDrop(files), std::pair(Qt::CopyAction, true));
        const QString status = find<QLabel>("statusLine")->text();
        QVERIFY2(status.startsWith("Imported 1 of 2 file(s); import failed: " + notes + ": "), qPrintable(status));
        QVERIFY(isSelected("loop_amen.wav"));
    }

    void sourceRowsTellLengthFormatOrRefusalAndAnEmptyFolderHowToAddLoops() {
        model::AppModel& m = start();
        QFile broken(QString::fromStdString(platform_->sourceFolder() + "/c.wav"));
        QVERIFY(broken.open(QIODevice::WriteOnly) && broken.write(QByteArray(64, 'x')) == 64);
        broken.close();
        m.refreshFiles();
        const auto b = [this](int role) { return sourceData("b.wav", role).toString(); };
        QCOMPARE(b(Qt::AccessibleDescriptionRole), QString()); // not read yet
        QCOMPARE(b(Qt::ToolTipRole), QString::fromStdString(platform_->sourceFolder() + "/b.wav"));
        QSignalSpy resets(sourceList()->model(), &QAbstractItemModel::modelReset);
        platform_->tasks.drain();
        QCOMPARE(resets.size(), 0); // the facts repaint the rows, never replace them
        QCOMPARE(b(Qt::AccessibleDescriptionRole), QString::fromUtf8("1.8 s \u00b7 16-bit stereo 44100 Hz"));
        QCOMPARE(b(ui::SourceList::tempoRole), QString::fromUtf8("136.9 BPM \u00b7 4/4 \u00b7 1 bar"));
        QCOMPARE(sourceData("c.wav", Qt::ToolTipRole).toString(), QStringLiteral("Invalid WAV header."));
        QCOMPARE(sourceData("c.wav", Qt::AccessibleDescriptionRole).toString(),
                 QString::fromUtf8("\u26a0 Invalid WAV header."));
        QVERIFY(sourceData("c.wav", ui::SourceList::refusedRole).toBool());
        // The reader's words where the pointer rests on the refused file's
        // small print, a pointing hand over its name and nothing beside them.
        ui::SourceList* list = sourceList();
        const auto pointAt = [list](QPoint at) {
            QTest::mouseMove(list->viewport(), at);
            QHelpEvent help(QEvent::ToolTip, at, list->viewport()->mapToGlobal(at));
            QApplication::sendEvent(list->viewport(), &help);
            return std::pair(QToolTip::isVisible() ? QToolTip::text() : QString(), list->viewport()->cursor().shape());
        };
        const int c = sourceRow("c.wav");
        QCOMPARE(pointAt(list->partRect(c, Part::name).topRight() + QPoint(20, 0)),
                 std::pair(QString(), Qt::ArrowCursor));
        for (const Part part : {Part::name, Part::caption})
            QCOMPARE(pointAt(list->partRect(c, part).center()),
                     std::pair(QStringLiteral("Invalid WAV header."), Qt::PointingHandCursor));
        QVERIFY(find("emptySourceHint")->isHidden());
        click(find("mashupModeBox"));
        clickSource("c.wav", Part::pool);
        QCOMPARE(sourceData("c.wav", Qt::CheckStateRole).toInt(), int(Qt::Unchecked));
        QVERIFY(m.mashupSourcePaths().empty());

        for (const char* name : {"a.wav", "b.wav", "c.wav"})
            QVERIFY(QFile::remove(QString::fromStdString(platform_->sourceFolder() + "/" + name)));
        click(find("refreshButton"));
        QVERIFY(find("emptySourceHint")->isVisible());
        QVERIFY(find<QLabel>("emptySourceHint")->text().startsWith(QStringLiteral("No loops here yet.")));
    }

    // A sample pack's worth of files: every row is listed, and the keyboard,
    // the scroll bar and the mouse reach any of them.
    void aFolderOfTenThousandFilesShowsEveryRow() {
        model::AppModel& m = start({});
        constexpr int files = 10'000;
        // Their names are all the list needs: no facts are read here.
        for (int i = 0; i < files; ++i) {
            QFile file(QString::fromStdString(platform_->sourceFolder()) +
                       QStringLiteral("/Loop %1.wav").arg(i, 5, 10, QLatin1Char('0')));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        click(find("refreshButton"));
        ui::SourceList* list = sourceList();
        QCOMPARE(list->model()->rowCount(), files);
        QVERIFY(find("emptySourceHint")->isHidden());
        const auto shown = [list](int row) {
            return list->viewport()->rect().contains(list->visualRect(list->model()->index(row, 0)));
        };
        QVERIFY(shown(0) && !shown(files - 1));

        list->setFocus();
        m.selectFile(m.wavFiles()[files - 2]);
        QTest::keyClick(list, Qt::Key_Down);
        QCOMPARE(model::fileName(*m.selectedFile()), "Loop 09999.wav");
        QVERIFY(shown(files - 1) && isSelected("Loop 09999.wav"));
        QCOMPARE(list->verticalScrollBar()->value(), list->verticalScrollBar()->maximum());
        clickSource("Loop 09990.wav");
        QVERIFY(isSelected("Loop 09990.wav") && !isSelected("Loop 09999.wav"));

        list->verticalScrollBar()->setValue(list->verticalScrollBar()->maximum() / 2);
        const int middle = list->indexAt(list->viewport()->rect().center()).row();
        QVERIFY(middle > 4000 && middle < 6000);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->partRect(middle, Part::name).center());
        QCOMPARE(*m.selectedFile(), m.wavFiles()[static_cast<std::size_t>(middle)]);
    }

    // Dragging a variation or the source out hands over a file of the bytes
    // Export Selected would write, with the export options in force, written
    // under the cache folder and nowhere in the output folder; a click still
    // plays, and so does a press that moves less than the drag distance.
    void draggingAWaveformOutCarriesTheExportedFile() {
        QStandardPaths::setTestModeEnabled(true);
        model::AppModel& m = start();
        click(find("generateButton"));
        platform_->tasks.drain();
        m.changeSettings([&](model::RunSettings& s) { s.exportOptions.tags = true; });
        std::vector<QList<QUrl>> drags;
        view_->setDragRunner([&drags](QDrag& drag) { drags.push_back(drag.mimeData()->urls()); });
        const auto press = [](QWidget* waveform, int distance) {
            const auto send = [waveform](QEvent::Type type, QPoint at, Qt::MouseButtons buttons) {
                QMouseEvent event(type, at, waveform->mapToGlobal(at), Qt::LeftButton, buttons, Qt::NoModifier);
                QApplication::sendEvent(waveform, &event);
            };
            const QPoint from(20, 20);
            send(QEvent::MouseButtonPress, from, Qt::LeftButton);
            send(QEvent::MouseMove, from + QPoint(distance, 0), Qt::LeftButton);
            send(QEvent::MouseButtonRelease, from + QPoint(distance, 0), Qt::NoButton);
        };
        const int distance = QApplication::startDragDistance();
        QWidget* row = loopRows().at(1)->waveformView();
        press(row, distance - 1);
        QVERIFY(drags.empty());
        QVERIFY(m.playingTarget() == playback::PlaybackTarget::generated(m.generatedLoops()[1].id));

        press(row, distance + 1);
        QCOMPARE(drags.size(), 1u);
        QVERIFY2(m.playingTarget().has_value(), "a drag is no click: the preview plays on");
        QCOMPARE(drags[0].size(), 1);
        const QString file = drags[0][0].toLocalFile();
        QCOMPARE(QFileInfo(file).fileName(), QString::fromStdString(m.generatedLoops()[1].name));
        QVERIFY(file.startsWith(ui::ContentView::dragFolder()));
        QVERIFY(audio::readWholeFile(file.toStdString()) == m.exportedBytes(m.generatedLoops()[1]));
        QVERIFY(!QFileInfo::exists(QString::fromStdString(m.outputDir() + "/" + m.generatedLoops()[1].name)));
        QFile::remove(file);

        press(find("sourceWaveform"), distance + 1);
        QCOMPARE(drags.size(), 2u);
        const QString source = drags[1].at(0).toLocalFile();
        QCOMPARE(QFileInfo(source).fileName(), QStringLiteral("a.wav"));
        QVERIFY(audio::readWholeFile(source.toStdString()) == m.exportedSourceBytes());
        QFile::remove(source);
    }

private:
    /// A window over a fresh temporary home whose source folder holds
    /// `files`, each a copy of one real drum break.
    model::AppModel& start(const std::vector<std::string>& files = {"a.wav", "b.wav"}) {
        view_.reset();
        platform_ = std::make_unique<ui::test::FakePlatform>();
        for (const std::string& file : files)
            platform_->addLoop(file);
        view_ = std::make_unique<ui::ContentView>(platform_->platform(), platform_->audioFileChooser());
        view_->show();
        return view_->model();
    }
    template <typename T = QWidget>
    T* find(const QString& name) const {
        T* widget = view_->findChild<T*>(name);
        if (!widget)
            qFatal("no widget named %s", qPrintable(name));
        return widget;
    }
    void click(QWidget* widget) const { QTest::mouseClick(widget, Qt::LeftButton); }
    QList<GeneratedLoopRow*> loopRows() const {
        QList<GeneratedLoopRow*> rows = view_->findChildren<GeneratedLoopRow*>();
        rows.removeIf([](const GeneratedLoopRow* row) { return row->isHidden(); });
        return rows;
    }
    ui::SourceList* sourceList() const { return find<ui::SourceList>("sourceList"); }
    int sourceRow(const std::string& name) const {
        const QAbstractItemModel* rows = sourceList()->model();
        for (int row = 0; row < rows->rowCount(); ++row)
            if (rows->index(row, 0).data().toString() == QString::fromStdString(name))
                return row;
        qFatal("no source row %s", name.c_str());
    }
    QVariant sourceData(const std::string& name, int role) const {
        return sourceList()->model()->index(sourceRow(name), 0).data(role);
    }
    bool isSelected(const std::string& name) const {
        return sourceData(name, ui::SourceList::selectedRole).toBool();
    }
    /// A click on `part` of the row of `name`, as a person makes it.
    void clickSource(const std::string& name, Part part = Part::name) const {
        ui::SourceList* list = sourceList();
        const int row = sourceRow(name);
        list->showRow(static_cast<std::size_t>(row));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->partRect(row, part).center());
    }
    int layoutIndex(const char* name) const { return view_->layout()->indexOf(find(name)); }

    std::unique_ptr<ui::test::FakePlatform> platform_;
    std::unique_ptr<ui::ContentView> view_;
};

QTEST_MAIN(ContentViewTest)
#include "ContentViewTest.moc"
