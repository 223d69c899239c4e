#include "model/Generation.hpp"
#include "ui/AppLogo.hpp"
#include "ui/HelpPanels.hpp"
#include "ui/MarquetryHelpView.hpp"

#include <QAction>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QMenuBar>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

using namespace marquetry;
using ui::HelpPanels;
using ui::HelpTopic;

namespace {

ui::MarquetryHelpView* helpView() {
    QWidget* window = HelpPanels::shared().helpWindow();
    return window != nullptr ? window->findChild<ui::MarquetryHelpView*>() : nullptr;
}

bool showsText(const QWidget& widget, const QString& text) {
    const QList<QLabel*> labels = widget.findChildren<QLabel*>();
    return std::any_of(labels.begin(), labels.end(), [&](const QLabel* label) { return label->text() == text; });
}

QImage solidImage(int width, int height) {
    QImage image(width, height, QImage::Format_ARGB32);
    image.fill(Qt::darkYellow);
    return image;
}

} // namespace

class HelpPanelsTest : public QObject {
    Q_OBJECT

private slots:
    void cleanup() {
        if (QWidget* window = HelpPanels::shared().helpWindow())
            window->close();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void oneHelpWindowKeepsItsTopicUntilItCloses() {
        HelpPanels::shared().showHelp();
        QPointer<QWidget> window = HelpPanels::shared().helpWindow();
        QVERIFY(window && window->isVisible());
        QCOMPARE(helpView()->selected(), HelpTopic::welcome);

        helpView()->setSelected(HelpTopic::playback);
        window->hide();
        HelpPanels::shared().showHelp();
        QCOMPARE(HelpPanels::shared().helpWindow(), window.data());
        QVERIFY(window->isVisible());
        QCOMPARE(helpView()->selected(), HelpTopic::playback);

        QWidget mainWindow;
        mainWindow.installEventFilter(&HelpPanels::shared());
        mainWindow.show();
        mainWindow.close();
        HelpPanels::shared().windowWillClose(nullptr);
        QCOMPARE(HelpPanels::shared().helpWindow(), window.data());

        window->close();
        QVERIFY(HelpPanels::shared().helpWindow() == nullptr);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(window.isNull());
        HelpPanels::shared().showHelp();
        QCOMPARE(helpView()->selected(), HelpTopic::welcome);
    }

    void helpMenuItemAndBothFormsOfItsShortcutOpenHelp() {
        QMainWindow mainWindow;
        mainWindow.setCentralWidget(new QWidget);
        QAction* item = ui::addHelpMenu(*mainWindow.menuBar());
        QCOMPARE(item->text(), QStringLiteral("Marquetry Help"));
        QCOMPARE(item->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+?")));

        mainWindow.show();
        QVERIFY(QTest::qWaitForWindowActive(&mainWindow));
        // As a platform reports it with Shift, and as X11 does: the "?" it
        // types, with Ctrl alone.
        const Qt::KeyboardModifiers ctrl = Qt::ControlModifier;
        for (const Qt::KeyboardModifiers modifiers : {ctrl | Qt::ShiftModifier, ctrl}) {
            QTest::keyClick(&mainWindow, Qt::Key_Question, modifiers);
            QVERIFY(HelpPanels::shared().helpWindow() != nullptr);
            HelpPanels::shared().helpWindow()->close();
            QVERIFY(HelpPanels::shared().helpWindow() == nullptr);
        }
    }

    void escapeOrCtrlWClosesTheHelpWindow() {
        for (const QKeySequence& keys : {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)}) {
            HelpPanels::shared().showHelp();
            QWidget* window = HelpPanels::shared().helpWindow();
            QVERIFY(QTest::qWaitForWindowActive(window));
            QTest::keySequence(window, keys);
            QVERIFY2(HelpPanels::shared().helpWindow() == nullptr, qPrintable(keys.toString()));
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        }
    }

    void exportTopicNamesTheFilesThatExportWrites() {
        const QString names = ui::helpPage(HelpTopic::export_).blocks.back().text;
        QCOMPARE(names, QStringLiteral("File names use the pattern <stem>_mqtry_<model>NN.wav, for example "
                                       "AmenBreak170_mqtry_pivot03.wav."));
        const std::string written = model::variationName("Amen Break (170).wav", chop::ChopModel::pivot, 3);
        QVERIFY(names.contains(QString::fromStdString(written)));
    }

    void sidebarSelectsTheTopicsInOrder() {
        ui::MarquetryHelpView view;
        auto* sidebar = view.findChild<QListWidget*>();
        QStringList titles;
        for (int row = 0; row < sidebar->count(); ++row)
            titles << sidebar->item(row)->text();
        QCOMPARE(titles, (QStringList{"Welcome", "Get Started", "Main Interface", "Chop Models", "Mashup Mode",
                                      "Playback", "Export", "License & Terms", "Troubleshooting",
                                      "Options, History & Shortcuts"}));

        sidebar->setCurrentRow(3);
        QCOMPARE(view.selected(), HelpTopic::chopModels);
        QVERIFY(showsText(view, "Interlock"));

        view.setSelected(HelpTopic::troubleshooting);
        QCOMPARE(sidebar->currentRow(), 8);
        QVERIFY(!showsText(view, "Interlock"));
    }

    void logoIsLookedForInItsThreePlacesInOrderAndTheNameStandsIn() {
        const std::unique_ptr<QWidget> withLogo(ui::makeWelcomeHeader(solidImage(600, 240)));
        QVERIFY(!withLogo->findChild<QLabel*>()->pixmap().isNull());
        const std::unique_ptr<QWidget> withoutLogo(ui::makeWelcomeHeader(std::nullopt));
        QCOMPARE(withoutLogo->findChild<QLabel*>()->text(), QStringLiteral("Marquetry"));

        QVERIFY(ui::appLogoImage().has_value());

        QTemporaryDir root;
        const QDir dir(root.path());
        QVERIFY(dir.mkpath("app/bin") && dir.mkpath("app/Resources") && dir.mkpath("work"));
        const ui::LogoPlaces places{":/no-such-logo.png", dir.filePath("app/bin"), dir.filePath("work")};
        const auto foundSize = [](const ui::LogoPlaces& at) { return ui::findLogo(at).value_or(QImage()).size(); };

        QVERIFY(!ui::findLogo(places).has_value());
        QVERIFY(solidImage(30, 10).save(dir.filePath("work/logo.png")));
        QCOMPARE(foundSize(places), QSize(30, 10));
        QVERIFY(solidImage(20, 10).save(dir.filePath("app/Resources/logo.png")));
        QCOMPARE(foundSize(places), QSize(20, 10));
        QCOMPARE(foundSize({":/logo.png", places.executableFolder, places.currentFolder}), QSize(600, 240));

        // A file that is not an image does not count as found.
        QFile junk(dir.filePath("app/Resources/logo.png"));
        QVERIFY(junk.open(QIODevice::WriteOnly | QIODevice::Truncate) && junk.write("not a png") > 0);
        junk.close();
        QCOMPARE(foundSize(places), QSize(30, 10));
    }
};

QTEST_MAIN(HelpPanelsTest)
#include "HelpPanelsTest.moc"
