// The main window from the keyboard, and a window that fits its screen: the
// real menus and shortcuts over the model on fake players, offscreen.
#include "UiFakes.hpp"

#include "model/FileSystem.hpp"
#include "ui/GeneratedLoopRow.hpp"
#include "ui/MainWindow.hpp"
#include "ui/WaveformView.hpp"

#include <QAbstractSpinBox>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QMenuBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScreen>
#include <QScrollBar>
#include <QSpinBox>
#include <QtTest>

using namespace marquetry;
using playback::PlaybackTarget;

class KeyboardTest : public QObject {
    Q_OBJECT

private slots:
    void spaceTogglesTheFocusedItemAndEscapeStops() {
        model::AppModel& m = start();
        auto* source = find<ui::WaveformView>("sourceWaveform");
        source->setFocus();
        key(Qt::Key_Space);
        QCOMPARE(m.playingTarget(), std::optional(PlaybackTarget::source()));
        key(Qt::Key_Space);
        QVERIFY(!m.playingTarget());
        QCOMPARE(m.status(), "Stopped source preview.");

        generate();
        const QList<ui::GeneratedLoopRow*> rows = loopRows();
        QCOMPARE(QApplication::focusWidget(), rows[0]);
        key(Qt::Key_Space);
        QCOMPARE(m.playingTarget(), std::optional(PlaybackTarget::generated(m.generatedLoops()[0].id)));
        key(Qt::Key_Down);
        key(Qt::Key_Space);
        QCOMPARE(m.playingTarget(), std::optional(PlaybackTarget::generated(m.generatedLoops()[1].id)));
        QVERIFY(window_->content().commands().stopPlayback->isEnabled());
        key(Qt::Key_Escape);
        QVERIFY(!m.playingTarget());
        QCOMPARE(m.status(), "Stopped preview.");
        QVERIFY(!window_->content().commands().stopPlayback->isEnabled());
        QCOMPARE(menuTitles(), (QStringList{"File", "History", "Playback"}));
        key(Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(!window_->isVisible());
        QVERIFY(platform_->settings.values.contains(ui::MainWindow::geometryKey));
    }

    // Escape and quitting cancel a run; the variations on screen stay.
    void escapeCancelsARunAndSoDoesQuitting() {
        model::AppModel& m = start();
        generate();
        const std::vector<model::GeneratedLoop> before = m.generatedLoops();
        key(Qt::Key_Return, Qt::ControlModifier);
        QVERIFY(m.isGenerating() && window_->content().commands().stopPlayback->isEnabled());
        key(Qt::Key_Escape);
        QVERIFY(!m.isGenerating());
        QCOMPARE(m.status(), "Generation cancelled.");
        platform_->tasks.drain();
        QVERIFY(m.generatedLoops() == before);
        QCOMPARE(find<QPushButton>("generateButton")->text(), QStringLiteral("Generate"));

        key(Qt::Key_Return, Qt::ControlModifier);
        key(Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(!window_->isVisible() && !m.isGenerating());
        QCOMPARE(m.status(), "Generation cancelled.");
    }

    void arrowsLettersAndReturnMoveThroughSourcesAndVariations() {
        model::AppModel& m = start({"a.wav", "b.wav", "Cymbal.wav"});
        find("sourceList")->setFocus();
        const auto selected = [&m] { return model::fileName(m.selectedFile().value_or("")); };
        key(Qt::Key_Down);
        QCOMPARE(selected(), "b.wav");
        key(Qt::Key_Down, Qt::NoModifier, 2); // stops at the last file
        QCOMPARE(selected(), "Cymbal.wav");
        key(Qt::Key_A);
        QCOMPARE(selected(), "a.wav");
        key(Qt::Key_C);
        QCOMPARE(selected(), "Cymbal.wav");
        key(Qt::Key_Up);
        QCOMPARE(selected(), "b.wav");
        // The page keys, Home and End move in both lists.
        for (const auto& [k, file] : {std::pair(Qt::Key_Home, "a.wav"), std::pair(Qt::Key_End, "Cymbal.wav"),
                                      std::pair(Qt::Key_PageUp, "a.wav"), std::pair(Qt::Key_PageDown, "Cymbal.wav")}) {
            key(k);
            QCOMPARE(selected(), file);
        }

        generate();
        const QList<ui::GeneratedLoopRow*> rows = loopRows();
        for (const auto& [k, row] : {std::pair(Qt::Key_End, 9), std::pair(Qt::Key_PageUp, -1),
                                     std::pair(Qt::Key_Home, 0), std::pair(Qt::Key_PageDown, -1)}) {
            key(k);
            const qsizetype focused = rows.indexOf(QApplication::focusWidget());
            // A page is fewer rows than the ten, and at least one.
            QVERIFY2(row >= 0 ? focused == row : focused > 0 && focused < 9, qPrintable(QString::number(focused)));
            QWidget* shown = find<QScrollArea>("loopList")->viewport();
            QVERIFY(shown->rect().intersects(QRect(rows[focused]->mapTo(shown, QPoint()), rows[focused]->size())));
        }
        key(Qt::Key_Home);
        key(Qt::Key_Up); // already on the first row
        QCOMPARE(QApplication::focusWidget(), loopRows()[0]);
        key(Qt::Key_Down);
        key(Qt::Key_Return);
        QVERIFY(m.generatedLoops()[0].isSelected && !m.generatedLoops()[1].isSelected);
        QVERIFY(!loopRows()[1]->checkBox()->isChecked());
        key(Qt::Key_Enter, Qt::KeypadModifier);
        QVERIFY(m.generatedLoops()[1].isSelected);
    }

    // The pool checkbox of the selected file, from the list: Space stays the
    // source's play key, so Return ticks, as it does a variation's checkbox.
    void returnTicksTheSelectedSourceForTheMashupPoolInMashupModeOnly() {
        model::AppModel& m = start({"a.wav", "b.wav", "c.wav"});
        const std::string folder = platform_->sourceFolder();
        find("sourceList")->setFocus();
        key(Qt::Key_Return);
        QVERIFY(m.mashupSourcePaths().empty());
        m.setMashupMode(true);
        key(Qt::Key_Down);
        key(Qt::Key_Return);
        key(Qt::Key_Down);
        key(Qt::Key_Enter, Qt::KeypadModifier);
        QCOMPARE(m.mashupSourcePaths(), (std::set<std::string>{folder + "/b.wav", folder + "/c.wav"}));
        key(Qt::Key_Return);
        QCOMPARE(m.mashupSourcePaths(), std::set<std::string>{folder + "/b.wav"});
        QCOMPARE(*m.selectedFile(), folder + "/c.wav");
        key(Qt::Key_Space);
        QCOMPARE(m.playingTarget(), std::optional(PlaybackTarget::source()));
        // One stop in the focus chain, then the source waveform beside it.
        key(Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), find("sourceWaveform"));
    }

    void generateShortcutAndButtonLeaveTheFocusOnTheFirstVariation() {
        model::AppModel& m = start();
        auto* slices = find<QSpinBox>("slicesBox");
        slices->setFocus();
        key(Qt::Key_Return, Qt::ControlModifier);
        QVERIFY(m.isGenerating());
        platform_->tasks.drain();
        QCOMPARE(QApplication::focusWidget(), loopRows()[0]);

        // A click gives the button the focus, which it loses when disabled.
        QTest::mouseClick(find("generateButton"), Qt::LeftButton);
        QVERIFY(m.isGenerating());
        QVERIFY(!qobject_cast<QAbstractSpinBox*>(QApplication::focusWidget()));
        platform_->tasks.drain();
        QCOMPARE(QApplication::focusWidget(), loopRows()[0]);
        key(Qt::Key_E, Qt::ControlModifier);
        QCOMPARE(m.status(), "Exported 10 loop(s) to " + platform_->outputFolder());
    }

    void typedValuesPastTheLimitsClampToThem_data() {
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("value");
        QTest::newRow("slices above") << "slicesBox" << "200" << 128;
        QTest::newRow("slices far above") << "slicesBox" << "99999999999999999999" << 128;
        QTest::newRow("slices below") << "slicesBox" << "2" << 4;
        QTest::newRow("slices within") << "slicesBox" << "16" << 16;
        QTest::newRow("variations above") << "variationsBox" << "1000" << 100;
        QTest::newRow("fade above") << "joinFadeMsBox" << "80" << 50;
    }

    void typedValuesPastTheLimitsClampToThem() {
        QFETCH(QString, box);
        QFETCH(QString, typed);
        QFETCH(int, value);
        model::AppModel& m = start();
        auto* spinBox = find<QSpinBox>(box);
        spinBox->setEnabled(true);
        spinBox->setFocus();
        spinBox->selectAll();
        QTest::keyClicks(spinBox, typed);
        QTest::keyClick(spinBox, Qt::Key_Return);
        QCOMPARE(spinBox->value(), value);
        if (box == "slicesBox")
            QCOMPARE(m.settings().plan.sliceCount, std::int64_t{value});
    }

    void historyKeysBringBackABlankSeedRunAfterTheSourceChanged() {
        model::AppModel& m = start();
        const ui::ContentView::Commands& commands = window_->content().commands();
        QVERIFY(!commands.back->isEnabled() && !find("backButton")->isEnabled());
        generate(); // blank seed, decided by the clock
        std::vector<audio::Bytes> first;
        for (const model::GeneratedLoop& loop : m.generatedLoops())
            first.push_back(loop.pcmData);
        m.toggleSelection(m.generatedLoops()[0].id, false);
        platform_->now += 3600;
        m.changeSettings([&](model::RunSettings& s) { s.plan.chopModel = chop::ChopModel::momentum; });
        m.changeSettings([&](model::RunSettings& s) { s.plan.sliceCount = 8; });
        m.changeSettings([&](model::RunSettings& s) { s.plan.joinFadeMs = 5; });
        generate();
        QVERIFY(m.generatedLoops()[0].pcmData != first[0]);
        QVERIFY(commands.back->isEnabled() && !commands.forward->isEnabled());

        m.selectFile(platform_->sourceFolder() + "/b.wav"); // empties the list
        key(Qt::Key_Z, Qt::ControlModifier);                 // the run just emptied
        platform_->tasks.drain();
        key(Qt::Key_Z, Qt::ControlModifier); // the run before it
        platform_->tasks.drain();
        QCOMPARE(m.generatedLoops().size(), first.size());
        for (std::size_t i = 0; i < first.size(); ++i)
            QVERIFY2(m.generatedLoops()[i].pcmData == first[i], qPrintable(QString("variation %1").arg(i + 1)));
        QVERIFY(!m.generatedLoops()[0].isSelected && !loopRows()[0]->checkBox()->isChecked());
        QCOMPARE(model::fileName(*m.selectedFile()), "a.wav");
        QVERIFY(commands.forward->isEnabled() && !commands.back->isEnabled());
        // The controls show the run on screen, not the one asked for last.
        const auto controls = [this] {
            return std::tuple(find<QComboBox>("chopModelBox")->currentText(), find<QSpinBox>("slicesBox")->value(),
                              find<QCheckBox>("joinFadeBox")->isChecked(), find<QLineEdit>("seedField")->text());
        };
        QCOMPARE(controls(), std::tuple(QStringLiteral("Grid"), 16, false, QString()));
        key(Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
        platform_->tasks.drain();
        QVERIFY(m.generatedLoops()[0].pcmData != first[0]);
        QCOMPARE(controls(), std::tuple(QStringLiteral("Momentum"), 8, true, QString()));
    }

    void aSmallWindowScrollsItsContentAndOpensOnScreen() {
        start();
        QScrollArea& scroll = window_->scrollArea();
        // The offscreen screen is smaller than the content.
        const QRect available = window_->screen()->availableGeometry();
        QVERIFY(available.contains(window_->frameGeometry()));
        window_->resize(800, 600);
        QTRY_VERIFY(scroll.verticalScrollBar()->isVisible() && scroll.horizontalScrollBar()->isVisible());
        QVERIFY(window_->content().width() >= 1040 && window_->content().height() >= 700);
        scroll.verticalScrollBar()->setValue(scroll.verticalScrollBar()->maximum());
        QVERIFY(!find("outputRow")->visibleRegion().isEmpty());
    }

    void windowGeometryIsRememberedAndKeptOnScreen_data() {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QRect>("expected");
        QTest::newRow("fits") << "20,60,700,500" << QRect(20, 60, 700, 500);
        QTest::newRow("off screen") << "-5000,-300,700,500" << QRect(8, 40, 700, 500);
        QTest::newRow("too large") << "0,0,3000,3000" << QRect(0, 0, 1, 1);
        QTest::newRow("not a geometry") << "wide" << QRect();
    }

    void windowGeometryIsRememberedAndKeptOnScreen() {
        QFETCH(QString, stored);
        QFETCH(QRect, expected);
        platform_ = std::make_unique<ui::test::FakePlatform>();
        platform_->settings.values[ui::MainWindow::geometryKey] = stored.toStdString();
        window_ = std::make_unique<ui::MainWindow>(platform_->platform(), platform_->audioFileChooser());
        const QRect room = QGuiApplication::primaryScreen()->availableGeometry().marginsRemoved({8, 40, 8, 8});
        if (expected == QRect(0, 0, 1, 1))
            expected = room; // as large as the screen allows
        if (!expected.isNull())
            QCOMPARE(window_->geometry(), expected);
        QVERIFY(room.contains(window_->geometry()));
        window_->show();
        window_->setGeometry(30, 70, 640, 480);
        window_->content().setSourceListWidth(360);
        window_->close();
        QCOMPARE(platform_->settings.values.at(ui::MainWindow::geometryKey), "30,70,640,480");
        // The source list as wide as it was left.
        window_ = std::make_unique<ui::MainWindow>(platform_->platform(), platform_->audioFileChooser());
        window_->show();
        QCOMPARE(window_->content().sourceListWidth(), 360);
    }

    void fitOnScreenKeepsTheWholeWindowInTheFreeArea_data() {
        QTest::addColumn<QRect>("wanted");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QRect>("fitted");
        const QMargins frame(8, 40, 8, 8);
        // 1920 x 1080 at a scale factor of 1.5, under a 30-point panel.
        QTest::newRow("scaled laptop") << QRect(0, 0, 1072, 780) << QRect(0, 30, 1280, 690)
                                       << QRect(8, 70, 1072, 642);
        QTest::newRow("second screen") << QRect(3000, 100, 800, 600) << QRect(1920, 0, 1920, 1080)
                                       << QRect(3000, 100, 800, 600);
        QTest::newRow("left of it") << QRect(1000, 100, 800, 600) << QRect(1920, 0, 1920, 1080)
                                    << QRect(1928, 100, 800, 600);
        QTest::newRow("bottom right") << QRect(1900, 1000, 800, 600) << QRect(0, 0, 1920, 1080)
                                      << QRect(1112, 472, 800, 600);
    }

    void fitOnScreenKeepsTheWholeWindowInTheFreeArea() {
        QFETCH(QRect, wanted);
        QFETCH(QRect, available);
        QFETCH(QRect, fitted);
        QCOMPARE(ui::fitOnScreen(wanted, available, QMargins(8, 40, 8, 8)), fitted);
    }

private:
    model::AppModel& start(const std::vector<std::string>& files = {"a.wav", "b.wav"}) {
        window_.reset();
        platform_ = std::make_unique<ui::test::FakePlatform>();
        for (const std::string& file : files)
            platform_->addLoop(file);
        window_ = std::make_unique<ui::MainWindow>(platform_->platform(), platform_->audioFileChooser());
        window_->show();
        if (!QTest::qWaitForWindowActive(window_.get()))
            qFatal("the window did not become active");
        return window_->content().model();
    }
    template <typename T = QWidget>
    T* find(const QString& name) const {
        T* widget = window_->findChild<T*>(name);
        if (!widget)
            qFatal("no widget named %s", qPrintable(name));
        return widget;
    }
    /// Keys as a person types them: to whatever has the focus.
    void key(Qt::Key k, Qt::KeyboardModifiers modifiers = Qt::NoModifier, int times = 1) const {
        for (int i = 0; i < times; ++i) {
            QWidget* target = QApplication::focusWidget();
            QTest::keyClick(target != nullptr ? target : window_.get(), k, modifiers);
        }
    }
    void generate() const {
        key(Qt::Key_Return, Qt::ControlModifier);
        platform_->tasks.drain();
    }
    QList<ui::GeneratedLoopRow*> loopRows() const {
        QList<ui::GeneratedLoopRow*> rows = window_->findChildren<ui::GeneratedLoopRow*>();
        rows.removeIf([](const ui::GeneratedLoopRow* row) { return row->isHidden(); });
        return rows;
    }
    QStringList menuTitles() const {
        QStringList titles;
        for (const QAction* menu : window_->menuBar()->actions())
            titles << menu->text();
        return titles;
    }

    std::unique_ptr<ui::test::FakePlatform> platform_;
    std::unique_ptr<ui::MainWindow> window_;
};

QTEST_MAIN(KeyboardTest)
#include "KeyboardTest.moc"
