#include "UiFakes.hpp"

#include "model/FileSystem.hpp"
#include "ui/ContentView.hpp"
#include "ui/GeneratedLoopRow.hpp"
#include "ui/SourceFileRow.hpp"
#include "ui/WaveformView.hpp"

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
using ui::GeneratedLoopRow;
using ui::SourceFileRow;
using Field = model::AppModel::Field;

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
        const model::AppModel& model = start({});
        const std::map<QString, double (*)(const model::AppModel&)> read = {
            {"slicesBox", [](const model::AppModel& m) { return static_cast<double>(m.slices()); }},
            {"variationsBox", [](const model::AppModel& m) { return static_cast<double>(m.versions()); }},
            {"glitchSlider", [](const model::AppModel& m) { return m.glitchAmount(); }},
            {"masterSlider", [](const model::AppModel& m) { return m.masterVolume(); }}};
        QVERIFY(find(control)->setProperty("value", requested));
        QCOMPARE(read.at(control)(model), stored);
        const auto* label = view_->findChild<QLabel*>(control + "Value");
        QCOMPARE(label != nullptr ? label->text() : find<QSpinBox>(control)->text(), shown);
    }

    void modelChangesAreShownWithoutEcho() {
        model::AppModel& model = start({});
        std::vector<Field> writes;
        model.subscribe([&writes](Field field) { writes.push_back(field); });

        model.setSlices(20);
        model.setChopModel(chop::ChopModel::drift);
        model.setSeedText("abc");
        model.setMasterVolume(0.5);
        QCOMPARE(find<QSpinBox>("slicesBox")->value(), 20);
        QCOMPARE(find<QComboBox>("chopModelBox")->currentText(), QStringLiteral("Drift"));
        QCOMPARE(find<QLineEdit>("seedField")->text(), QStringLiteral("abc"));
        QCOMPARE(find<QSlider>("masterSlider")->value(), 500);
        QCOMPARE(writes, (std::vector{Field::slices, Field::chopModel, Field::seedText, Field::masterVolume}));

        // Typing writes once per key, and the echo of each write is no write.
        writes.clear();
        QTest::keyClicks(find<QLineEdit>("seedField"), "de");
        QCOMPARE(model.seedText(), "abcde");
        QCOMPARE(writes, (std::vector{Field::seedText, Field::seedText}));
    }

    void glitchRowSitsBetweenGenerateAndMasterOnlyForGlitch() {
        model::AppModel& model = start({});
        auto* chopBox = find<QComboBox>("chopModelBox");
        QCOMPARE(layoutIndex("glitchRow"), -1);

        chopBox->setCurrentText(QStringLiteral("Glitch"));
        QCOMPARE(model.chopModel(), chop::ChopModel::glitch);
        QCOMPARE(layoutIndex("glitchRow"), layoutIndex("generateRow") + 1);
        QCOMPARE(layoutIndex("masterRow"), layoutIndex("glitchRow") + 1);
        QVERIFY(find("glitchRow")->isVisible());

        find<QSlider>("glitchSlider")->setValue(300);
        chopBox->setCurrentText(QStringLiteral("Pivot"));
        QCOMPARE(layoutIndex("glitchRow"), -1);
        QVERIFY(find("glitchRow")->isHidden());
        QCOMPARE(model.glitchAmount(), 0.3);
    }

    void generateThenSelectionButtonsFollowTheTicks() {
        start({});
        QVERIFY(!find("generateButton")->isEnabled());
        model::AppModel& model = start();
        auto* generate = find<QPushButton>("generateButton");
        auto* selectAll = find("selectAllButton");
        auto* selectNone = find("selectNoneButton");
        auto* exportButton = find("exportButton");
        auto* emptyLabel = find<QLabel>("emptyLoopsLabel");
        QCOMPARE(emptyLabel->text(), QStringLiteral("No generated loops yet. Click Generate."));
        QVERIFY(emptyLabel->isVisible());
        QVERIFY(!selectAll->isEnabled() && !selectNone->isEnabled() && !exportButton->isEnabled());

        find<QSpinBox>("variationsBox")->setValue(4);
        click(generate);
        QCOMPARE(generate->text(), QStringLiteral("Generating..."));
        QVERIFY(model.isGenerating() && !generate->isEnabled());
        platform_->tasks.drain();
        QCOMPARE(generate->text(), QStringLiteral("Generate"));
        QVERIFY(generate->isEnabled());

        const QList<GeneratedLoopRow*> rows = loopRows();
        const auto ticked = [&rows] {
            return std::count_if(rows.begin(), rows.end(), [](auto* row) { return row->checkBox()->isChecked(); });
        };
        QCOMPARE(rows.size(), 4);
        QVERIFY(emptyLabel->isHidden());
        QVERIFY(selectAll->isEnabled() && selectNone->isEnabled() && exportButton->isEnabled());
        std::vector<Field> writes;
        model.subscribe([&writes](Field field) { writes.push_back(field); });
        click(selectNone);
        QCOMPARE(ticked(), 0);
        // Each tick is published as it changes, and nothing else is written.
        QCOMPARE(writes, std::vector<Field>(4, Field::generatedLoops));
        QVERIFY(!exportButton->isEnabled() && selectAll->isEnabled());
        click(rows[2]->checkBox());
        QVERIFY(model.generatedLoops()[2].isSelected && exportButton->isEnabled());
        click(selectAll);
        QCOMPARE(ticked(), 4);
        QCOMPARE(loopRows(), rows); // ticks never rebuild the rows

        // Loading another source clears the list.
        click(sourceRow("b.wav")->selectButton());
        QVERIFY(emptyLabel->isVisible());
        QVERIFY(!selectAll->isEnabled() && !exportButton->isEnabled());
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
        model::AppModel& model = start({});
        auto* field = find<QLineEdit>("outputField");
        field->clear();
        QTest::keyClicks(field, typed);
        QCOMPARE(QString::fromStdString(model.outputDir()), typed);
        QTest::keyClick(field, Qt::Key_Return);

        const QString expected = expands ? QString::fromStdString(platform_->home()) + typed.mid(1) : typed;
        QCOMPARE(QString::fromStdString(model.outputDir()), expected);
        QCOMPARE(field->text(), expected);
    }

    void poolCheckBoxOnlyInMashupModeAndDoesNotSelect() {
        model::AppModel& model = start();
        SourceFileRow* a = sourceRow("a.wav");
        SourceFileRow* b = sourceRow("b.wav");
        QVERIFY(!b->poolCheckBox()->isVisible());

        click(find("mashupModeBox"));
        QVERIFY(b->poolCheckBox()->isVisible());
        click(b->poolCheckBox());
        QCOMPARE(model.mashupSourcePaths(), std::set<std::string>{platform_->sourceFolder() + "/b.wav"});
        QVERIFY(a->values().isSelected && !b->values().isSelected);

        // Checked pool files are no selection to generate from.
        click(a->poolCheckBox());
        model.selectFile(std::string("not listed.wav"));
        QCOMPARE(model.mashupSourcePaths().size(), 2u);
        QVERIFY(!find("generateButton")->isEnabled());

        click(find("mashupModeBox"));
        QVERIFY(!b->poolCheckBox()->isVisible());
        click(b->selectButton());
        QCOMPARE(*model.selectedFile(), platform_->sourceFolder() + "/b.wav");
        QVERIFY(b->values().isSelected);
    }

    void progressTicksMoveOnlyThePlayingPlayhead() {
        model::AppModel& model = start();
        click(find("generateButton"));
        platform_->tasks.drain();
        const QList<GeneratedLoopRow*> rows = loopRows();
        auto* source = find<ui::WaveformView>("sourceWaveform");
        platform_->players.currentTime = 0.5;

        QTest::mouseClick(source, Qt::LeftButton, {}, QPoint(3, 3));
        QCOMPARE(source->playheadProgress(), std::optional(0.25));
        platform_->players.currentTime = 1.0;
        platform_->timers.fire();
        QCOMPARE(source->playheadProgress(), std::optional(0.5));

        click(rows[1]->waveformView());
        QVERIFY(!source->playheadProgress());
        QCOMPARE(rows[1]->stateLabel()->text(), QStringLiteral("Looping"));
        QCOMPARE(rows[0]->stateLabel()->text(), QStringLiteral("Stopped"));
        platform_->players.currentTime = 1.5;
        platform_->timers.fire();
        QCOMPARE(rows[1]->waveformView()->playheadProgress(), std::optional(0.75));
        QVERIFY(!rows[0]->waveformView()->playheadProgress() && !rows[2]->waveformView()->playheadProgress());
        QCOMPARE(loopRows(), rows);

        click(rows[1]->waveformView());
        QVERIFY(!rows[1]->waveformView()->playheadProgress());
        QCOMPARE(model.status(), "Stopped preview.");
    }

private:
    /// A window over a fresh temporary home whose source folder holds
    /// `files`, each a copy of one real drum break.
    model::AppModel& start(const std::vector<std::string>& files = {"a.wav", "b.wav"}) {
        view_.reset();
        platform_ = std::make_unique<ui::test::FakePlatform>();
        for (const std::string& file : files)
            platform_->addLoop(file);
        view_ = std::make_unique<ui::ContentView>(platform_->platform());
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
    SourceFileRow* sourceRow(const std::string& name) const {
        for (SourceFileRow* row : view_->findChildren<SourceFileRow*>())
            if (!row->isHidden() && model::fileName(row->values().file) == name)
                return row;
        qFatal("no source row %s", name.c_str());
    }
    int layoutIndex(const char* name) const { return view_->layout()->indexOf(find(name)); }

    std::unique_ptr<ui::test::FakePlatform> platform_;
    std::unique_ptr<ui::ContentView> view_;
};

QTEST_MAIN(ContentViewTest)
#include "ContentViewTest.moc"
