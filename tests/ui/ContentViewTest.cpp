#include "UiFakes.hpp"

#include "model/FileSystem.hpp"
#include "ui/ContentView.hpp"
#include "ui/GeneratedLoopRow.hpp"
#include "ui/SourceFileRow.hpp"
#include "ui/WaveformView.hpp"

#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QtTest>

using namespace marquetry;
using ui::ContentView;
using ui::GeneratedLoopRow;
using ui::SourceFileRow;
using Field = model::AppModel::Field;

class ContentViewTest : public QObject {
    Q_OBJECT

private slots:
    void cleanup();

    void generateNeedsASelectedSource();
    void generateReadsGeneratingWhileBusy();
    void steppersStayInBounds_data();
    void steppersStayInBounds();
    void controlsWriteTheModelWithoutEcho();
    void glitchRowComesAndGoesWithTheGlitchModel();
    void sliderLabelsTruncatePercent_data();
    void sliderLabelsTruncatePercent();
    void selectionButtonsFollowTheTicks();
    void returnInOutputFieldExpandsTilde_data();
    void returnInOutputFieldExpandsTilde();
    void poolCheckBoxOnlyInMashupModeAndDoesNotSelect();
    void progressTicksMoveOnlyThePlayingPlayhead();

private:
    /// A window over a fresh temporary home holding `files` (copies of one
    /// real drum break).
    ContentView& start(const std::vector<std::string>& files = {"a.wav", "b.wav"}) {
        view_.reset();
        platform_ = std::make_unique<ui::test::FakePlatform>();
        for (const std::string& file : files)
            platform_->addLoop(file);
        view_ = std::make_unique<ContentView>(platform_->platform());
        view_->show();
        return *view_;
    }
    void generate(int variations) {
        find<QSpinBox>("variationsBox")->setValue(variations);
        QTest::mouseClick(find<QPushButton>("generateButton"), Qt::LeftButton);
        platform_->tasks.drain();
    }
    template <typename T>
    T* find(const char* name) const {
        T* widget = view_->findChild<T*>(QLatin1String(name));
        if (!widget)
            qFatal("no widget named %s", name);
        return widget;
    }
    QList<GeneratedLoopRow*> loopRows() const {
        QList<GeneratedLoopRow*> rows;
        for (GeneratedLoopRow* row : view_->findChildren<GeneratedLoopRow*>())
            if (!row->isHidden())
                rows.push_back(row);
        return rows;
    }
    SourceFileRow* sourceRow(const std::string& name) const {
        for (SourceFileRow* row : view_->findChildren<SourceFileRow*>())
            if (!row->isHidden() && model::fileName(row->values().file) == name)
                return row;
        qFatal("no source row %s", name.c_str());
    }
    int layoutIndex(const char* name) const { return view_->layout()->indexOf(find<QWidget>(name)); }

    std::unique_ptr<ui::test::FakePlatform> platform_;
    std::unique_ptr<ContentView> view_;
};

void ContentViewTest::cleanup() {
    view_.reset();
    platform_.reset();
}

void ContentViewTest::generateNeedsASelectedSource() {
    ContentView& view = start();
    auto* generate = find<QPushButton>("generateButton");
    QVERIFY(generate->isEnabled());

    QTest::mouseClick(find<QCheckBox>("mashupModeBox"), Qt::LeftButton);
    QTest::mouseClick(sourceRow("a.wav")->poolCheckBox(), Qt::LeftButton);
    QTest::mouseClick(sourceRow("b.wav")->poolCheckBox(), Qt::LeftButton);
    QCOMPARE(view.model().mashupSourcePaths().size(), 2u);
    view.model().selectFile(std::string("not listed.wav"));
    QVERIFY(!view.model().selectedFile());
    QVERIFY(!generate->isEnabled());

    start({});
    QVERIFY(!find<QPushButton>("generateButton")->isEnabled());
}

void ContentViewTest::generateReadsGeneratingWhileBusy() {
    ContentView& view = start();
    find<QSpinBox>("variationsBox")->setValue(3);
    auto* generate = find<QPushButton>("generateButton");
    QTest::mouseClick(generate, Qt::LeftButton);

    QVERIFY(view.model().isGenerating());
    QCOMPARE(generate->text(), QStringLiteral("Generating..."));
    QVERIFY(!generate->isEnabled());
    QVERIFY(find<QSpinBox>("slicesBox")->isEnabled());
    QVERIFY(find<QLineEdit>("seedField")->isEnabled());

    platform_->tasks.drain();
    QCOMPARE(generate->text(), QStringLiteral("Generate"));
    QVERIFY(generate->isEnabled());
    QCOMPARE(loopRows().size(), 3);
    QVERIFY(find<QLabel>("emptyLoopsLabel")->isHidden());
}

void ContentViewTest::steppersStayInBounds_data() {
    QTest::addColumn<QString>("box");
    QTest::addColumn<QString>("initialText");
    QTest::addColumn<int>("requested");
    QTest::addColumn<qint64>("stored");

    QTest::newRow("slices below") << "slicesBox" << "Slices: 16" << 3 << qint64{4};
    QTest::newRow("slices above") << "slicesBox" << "Slices: 16" << 129 << qint64{128};
    QTest::newRow("slices inside") << "slicesBox" << "Slices: 16" << 77 << qint64{77};
    QTest::newRow("variations below") << "variationsBox" << "Variations: 10" << 0 << qint64{1};
    QTest::newRow("variations above") << "variationsBox" << "Variations: 10" << 1000 << qint64{100};
}

void ContentViewTest::steppersStayInBounds() {
    QFETCH(QString, box);
    QFETCH(QString, initialText);
    QFETCH(int, requested);
    QFETCH(qint64, stored);

    ContentView& view = start({});
    auto* spin = find<QSpinBox>(box.toLatin1().constData());
    QCOMPARE(spin->text(), initialText);
    spin->setValue(requested);
    const auto modelValue = [&] { return box == "slicesBox" ? view.model().slices() : view.model().versions(); };
    QCOMPARE(modelValue(), stored);

    // One more step past the end goes nowhere.
    spin->stepBy(requested < stored ? -1 : 1);
    if (requested != stored)
        QCOMPARE(modelValue(), stored);
}

void ContentViewTest::controlsWriteTheModelWithoutEcho() {
    ContentView& view = start({});
    std::vector<Field> writes;
    view.model().subscribe([&writes](Field field) { writes.push_back(field); });

    view.model().setSlices(20);
    view.model().setChopModel(chop::ChopModel::drift);
    view.model().setSeedText("abc");
    view.model().setMasterVolume(0.5);
    QCOMPARE(find<QSpinBox>("slicesBox")->value(), 20);
    QCOMPARE(find<QComboBox>("chopModelBox")->currentText(), QStringLiteral("Drift"));
    QCOMPARE(find<QLineEdit>("seedField")->text(), QStringLiteral("abc"));
    QCOMPARE(find<QSlider>("masterSlider")->value(), 500);
    QCOMPARE(writes, (std::vector{Field::slices, Field::chopModel, Field::seedText, Field::masterVolume}));

    writes.clear();
    QTest::keyClicks(find<QLineEdit>("seedField"), "de");
    QCOMPARE(view.model().seedText(), "abcde");
    QCOMPARE(writes, (std::vector{Field::seedText, Field::seedText}));

    auto* chopBox = find<QComboBox>("chopModelBox");
    QCOMPARE(chopBox->count(), 9);
    for (int i = 0; i < chopBox->count(); ++i)
        QCOMPARE(chopBox->itemText(i).toStdString(), chop::label(chop::allChopModels[static_cast<std::size_t>(i)]));
}

void ContentViewTest::glitchRowComesAndGoesWithTheGlitchModel() {
    ContentView& view = start({});
    QCOMPARE(layoutIndex("glitchRow"), -1);
    QVERIFY(find<QWidget>("glitchRow")->isHidden());

    find<QComboBox>("chopModelBox")->setCurrentText(QStringLiteral("Glitch"));
    QCOMPARE(view.model().chopModel(), chop::ChopModel::glitch);
    QCOMPARE(layoutIndex("glitchRow"), layoutIndex("generateRow") + 1);
    QCOMPARE(layoutIndex("masterRow"), layoutIndex("glitchRow") + 1);
    QVERIFY(find<QWidget>("glitchRow")->isVisible());

    find<QSlider>("glitchSlider")->setValue(300);
    find<QComboBox>("chopModelBox")->setCurrentText(QStringLiteral("Pivot"));
    QCOMPARE(layoutIndex("glitchRow"), -1);
    QVERIFY(find<QWidget>("glitchRow")->isHidden());
    QCOMPARE(view.model().glitchAmount(), 0.3);

    view.model().setChopModel(chop::ChopModel::glitch);
    QCOMPARE(layoutIndex("glitchRow"), layoutIndex("generateRow") + 1);
}

void ContentViewTest::sliderLabelsTruncatePercent_data() {
    QTest::addColumn<QString>("slider");
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("label");

    for (const char* slider : {"glitchSlider", "masterSlider"}) {
        QTest::addRow("%s 0", slider) << slider << 0.0 << "0%";
        QTest::addRow("%s 0.289", slider) << slider << 0.289 << "28%";
        QTest::addRow("%s 0.55", slider) << slider << 0.55 << "55%";
        QTest::addRow("%s 1", slider) << slider << 1.0 << "100%";
    }
}

void ContentViewTest::sliderLabelsTruncatePercent() {
    QFETCH(QString, slider);
    QFETCH(double, value);
    QFETCH(QString, label);

    ContentView& view = start({});
    view.model().setChopModel(chop::ChopModel::glitch);
    auto* control = find<QSlider>(slider.toLatin1().constData());
    auto* valueLabel = find<QLabel>((slider + "Value").toLatin1().constData());
    const bool isGlitch = slider == "glitchSlider";
    const auto modelValue = [&] { return isGlitch ? view.model().glitchAmount() : view.model().masterVolume(); };

    if (isGlitch)
        view.model().setGlitchAmount(value);
    else
        view.model().setMasterVolume(value);
    QCOMPARE(valueLabel->text(), label);
    QCOMPARE(valueLabel->alignment() & Qt::AlignRight, Qt::AlignRight);

    // Dragging to the same place from elsewhere writes the value back.
    control->setValue(control->value() == 0 ? 1 : 0);
    control->setValue(static_cast<int>(std::lround(value * 1000)));
    QCOMPARE(modelValue(), value);
    QCOMPARE(valueLabel->text(), label);
}

void ContentViewTest::selectionButtonsFollowTheTicks() {
    start();
    auto* selectAll = find<QPushButton>("selectAllButton");
    auto* selectNone = find<QPushButton>("selectNoneButton");
    auto* exportButton = find<QPushButton>("exportButton");
    QCOMPARE(find<QLabel>("emptyLoopsLabel")->text(), QStringLiteral("No generated loops yet. Click Generate."));
    QVERIFY(find<QLabel>("emptyLoopsLabel")->isVisible());
    QVERIFY(!selectAll->isEnabled());
    QVERIFY(!selectNone->isEnabled());
    QVERIFY(!exportButton->isEnabled());

    generate(4);
    const QList<GeneratedLoopRow*> rows = loopRows();
    QCOMPARE(rows.size(), 4);
    QVERIFY(selectAll->isEnabled() && selectNone->isEnabled() && exportButton->isEnabled());

    QTest::mouseClick(rows[1]->checkBox(), Qt::LeftButton);
    QVERIFY(!view_->model().generatedLoops()[1].isSelected);
    QTest::mouseClick(selectNone, Qt::LeftButton);
    for (const model::GeneratedLoop& loop : view_->model().generatedLoops())
        QVERIFY(!loop.isSelected);
    for (GeneratedLoopRow* row : rows)
        QVERIFY(!row->checkBox()->isChecked());
    QVERIFY(!exportButton->isEnabled());
    QVERIFY(selectAll->isEnabled());

    QTest::mouseClick(rows[2]->checkBox(), Qt::LeftButton);
    QVERIFY(view_->model().generatedLoops()[2].isSelected);
    QVERIFY(exportButton->isEnabled());
    QTest::mouseClick(selectAll, Qt::LeftButton);
    for (GeneratedLoopRow* row : rows)
        QVERIFY(row->checkBox()->isChecked());
    // Ticks never rebuild the rows.
    QCOMPARE(loopRows(), rows);

    // Loading another source clears the list.
    QTest::mouseClick(sourceRow("b.wav")->selectButton(), Qt::LeftButton);
    QVERIFY(loopRows().isEmpty());
    QVERIFY(find<QLabel>("emptyLoopsLabel")->isVisible());
    QVERIFY(!selectAll->isEnabled() && !exportButton->isEnabled());
}

void ContentViewTest::returnInOutputFieldExpandsTilde_data() {
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("expands");

    QTest::newRow("tilde folder") << "~/Exports/Breaks" << true;
    QTest::newRow("tilde alone") << "~" << true;
    QTest::newRow("absolute") << "/tmp/marquetry out" << false;
    QTest::newRow("other user") << "~someone/loops" << false;
    QTest::newRow("tilde inside") << "loops/~/x" << false;
}

void ContentViewTest::returnInOutputFieldExpandsTilde() {
    QFETCH(QString, typed);
    QFETCH(bool, expands);

    ContentView& view = start({});
    auto* field = find<QLineEdit>("outputField");
    field->clear();
    QTest::keyClicks(field, typed);
    QCOMPARE(QString::fromStdString(view.model().outputDir()), typed);
    QTest::keyClick(field, Qt::Key_Return);

    const QString expected = expands ? QString::fromStdString(platform_->home()) + typed.mid(1) : typed;
    QCOMPARE(QString::fromStdString(view.model().outputDir()), expected);
    QCOMPARE(field->text(), expected);
    QVERIFY(!QDir(QString::fromStdString(platform_->home()) + "/Exports").exists());
}

void ContentViewTest::poolCheckBoxOnlyInMashupModeAndDoesNotSelect() {
    ContentView& view = start();
    SourceFileRow* b = sourceRow("b.wav");
    QVERIFY(!b->poolCheckBox()->isVisible());

    QTest::mouseClick(find<QCheckBox>("mashupModeBox"), Qt::LeftButton);
    QVERIFY(view.model().mashupMode());
    QCOMPARE(find<QLabel>("modeHint")->text(), QStringLiteral("Mashup slices are pooled from checked source files."));
    QVERIFY(b->poolCheckBox()->isVisible());

    QTest::mouseClick(b->poolCheckBox(), Qt::LeftButton);
    QCOMPARE(view.model().mashupSourcePaths(), std::set<std::string>{platform_->sourceFolder() + "/b.wav"});
    QCOMPARE(*view.model().selectedFile(), platform_->sourceFolder() + "/a.wav");

    QTest::mouseClick(find<QCheckBox>("mashupModeBox"), Qt::LeftButton);
    QVERIFY(!b->poolCheckBox()->isVisible());
    QCOMPARE(view.model().mashupSourcePaths().size(), 1u);
    QCOMPARE(find<QLabel>("modeHint")->text(),
             QStringLiteral("Single-source mode uses only the selected source file."));

    QTest::mouseClick(b->selectButton(), Qt::LeftButton);
    QCOMPARE(*view.model().selectedFile(), platform_->sourceFolder() + "/b.wav");
    QCOMPARE(sourceRow("b.wav"), b);
    QVERIFY(b->values().isSelected && !sourceRow("a.wav")->values().isSelected);
}

void ContentViewTest::progressTicksMoveOnlyThePlayingPlayhead() {
    ContentView& view = start();
    generate(3);
    const QList<GeneratedLoopRow*> rows = loopRows();
    auto* source = find<ui::WaveformView>("sourceWaveform");
    auto* caption = find<QLabel>("sourceCaption");
    platform_->players.currentTime = 0.5;

    QTest::mouseClick(source, Qt::LeftButton, {}, QPoint(3, 3));
    QCOMPARE(caption->text(), QStringLiteral("Source: Looping (click waveform to stop)"));
    QCOMPARE(source->playheadProgress(), std::optional(0.25));
    platform_->players.currentTime = 1.0;
    platform_->timers.fire();
    QCOMPARE(source->playheadProgress(), std::optional(0.5));

    QTest::mouseClick(rows[1]->waveformView(), Qt::LeftButton);
    QCOMPARE(caption->text(), QStringLiteral("Source: Stopped (click waveform to play)"));
    QVERIFY(!source->playheadProgress());
    QCOMPARE(rows[1]->stateLabel()->text(), QStringLiteral("Looping"));
    QCOMPARE(rows[0]->stateLabel()->text(), QStringLiteral("Stopped"));

    platform_->players.currentTime = 1.5;
    platform_->timers.fire();
    QCOMPARE(rows[1]->waveformView()->playheadProgress(), std::optional(0.75));
    QVERIFY(!rows[0]->waveformView()->playheadProgress());
    QVERIFY(!rows[2]->waveformView()->playheadProgress());
    QCOMPARE(loopRows(), rows);

    QTest::mouseClick(rows[1]->waveformView(), Qt::LeftButton);
    QCOMPARE(rows[1]->stateLabel()->text(), QStringLiteral("Stopped"));
    QVERIFY(!rows[1]->waveformView()->playheadProgress());
    QCOMPARE(view.model().status(), "Stopped preview.");
    QCOMPARE(find<QLabel>("statusLine")->text(), QStringLiteral("Stopped preview."));
}

QTEST_MAIN(ContentViewTest)
#include "ContentViewTest.moc"
