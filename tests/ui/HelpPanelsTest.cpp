#include "../model/PlatformFakes.hpp"
#include "model/AppModel.hpp"
#include "ui/AppLogo.hpp"
#include "ui/HelpPanels.hpp"
#include "ui/LaunchSettings.hpp"
#include "ui/MarquetryHelpView.hpp"

#include <QDir>
#include <QLabel>
#include <QListWidget>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <map>

using namespace marquetry;
using ui::HelpPanels;
using ui::HelpTopic;
using ui::MarquetryHelpView;

namespace {

MarquetryHelpView* helpView() {
    QWidget* window = HelpPanels::shared().helpWindow();
    return window != nullptr ? window->findChild<MarquetryHelpView*>() : nullptr;
}

int helpWindowCount() {
    int count = 0;
    for (const QWidget* widget : QApplication::topLevelWidgets())
        count += widget->objectName() == QLatin1String(HelpPanels::windowIdentifier) ? 1 : 0;
    return count;
}

void closeHelpWindow() {
    if (QWidget* window = HelpPanels::shared().helpWindow())
        window->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

QStringList labelTexts(const QWidget& page) {
    QStringList texts;
    for (const QLabel* label : page.findChildren<QLabel*>())
        if (!label->text().isEmpty())
            texts << label->text();
    return texts;
}

const QLabel* labelWithText(const QWidget& page, const QString& text) {
    for (const QLabel* label : page.findChildren<QLabel*>())
        if (label->text() == text)
            return label;
    return nullptr;
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
    void cleanup() { closeHelpWindow(); }

    void secondRequestRaisesTheSameWindowKeepingItsTopic() {
        HelpPanels::shared().showHelp();
        QPointer<QWidget> window = HelpPanels::shared().helpWindow();
        QVERIFY(window);
        QVERIFY(window->isVisible());
        QCOMPARE(window->windowTitle(), QStringLiteral("Marquetry Help"));
        QCOMPARE(window->objectName(), QStringLiteral("marquetry-help-window"));
        QCOMPARE(window->minimumSize(), QSize(760, 500));
        QCOMPARE(window->size(), QSize(980, 640));
        QVERIFY(!window->testAttribute(Qt::WA_DeleteOnClose));
        QCOMPARE(helpView()->selected(), HelpTopic::welcome);

        helpView()->setSelected(HelpTopic::playback);
        window->hide();
        HelpPanels::shared().showHelp();
        QCOMPARE(HelpPanels::shared().helpWindow(), window.data());
        QVERIFY(window->isVisible());
        QCOMPARE(helpView()->selected(), HelpTopic::playback);
        QCOMPARE(helpWindowCount(), 1);
    }

    void closingTheHelpWindowDisposesOfItAndTheNextOpensOnWelcome() {
        HelpPanels::shared().showHelp();
        helpView()->setSelected(HelpTopic::export_);
        QPointer<QWidget> first = HelpPanels::shared().helpWindow();
        first->close();
        QVERIFY(HelpPanels::shared().helpWindow() == nullptr);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(first.isNull());

        HelpPanels::shared().showHelp();
        QVERIFY(HelpPanels::shared().helpWindow() != nullptr);
        QCOMPARE(helpView()->selected(), HelpTopic::welcome);
    }

    void closingAnotherWindowKeepsTheHelpWindow() {
        HelpPanels::shared().showHelp();
        QWidget* help = HelpPanels::shared().helpWindow();
        QWidget mainWindow;
        mainWindow.installEventFilter(&HelpPanels::shared());
        mainWindow.show();
        mainWindow.close();
        HelpPanels::shared().windowWillClose(nullptr);
        QCOMPARE(HelpPanels::shared().helpWindow(), help);
    }

    void helpMenuItemAndItsShortcutOpenTheHelpWindow() {
        QMainWindow mainWindow;
        mainWindow.setCentralWidget(new QWidget);
        QAction* item = ui::addHelpMenu(*mainWindow.menuBar());
        const QList<QAction*> menus = mainWindow.menuBar()->actions();
        QCOMPARE(menus.size(), 1);
        QCOMPARE(menus.front()->text(), QStringLiteral("Help"));
        QCOMPARE(menus.front()->menu()->actions(), QList<QAction*>{item});
        QCOMPARE(item->text(), QStringLiteral("Marquetry Help"));

        QCOMPARE(item->shortcut(), QKeySequence(QStringLiteral("Ctrl+Shift+?")));

        mainWindow.show();
        QVERIFY(QTest::qWaitForWindowActive(&mainWindow));
        // As a platform reports it with Shift, and as X11 does: the "?" it
        // types, with Ctrl alone.
        for (const auto modifiers : {Qt::ControlModifier | Qt::ShiftModifier, Qt::KeyboardModifiers(Qt::ControlModifier)}) {
            QTest::keyClick(&mainWindow, Qt::Key_Question, modifiers);
            QVERIFY(HelpPanels::shared().helpWindow() != nullptr);
            QCOMPARE(helpView()->selected(), HelpTopic::welcome);
            HelpPanels::shared().helpWindow()->close();
            QVERIFY(HelpPanels::shared().helpWindow() == nullptr);
        }
    }

    void windowIsPlacedFromTheBottomOfTheScreen() {
        const QRect tall(0, 0, 1280, 900);
        QCOMPARE(HelpPanels::windowGeometry(tall, tall.adjusted(0, 25, 0, 0)), QRect(170, 140, 980, 640));
        // A second screen to the right, and one too short for the offset.
        const QRect right(1280, 0, 1920, 1080);
        QCOMPARE(HelpPanels::windowGeometry(right, right), QRect(1450, 320, 980, 640));
        const QRect shortScreen(0, 0, 800, 600);
        QCOMPARE(HelpPanels::windowGeometry(shortScreen, shortScreen.adjusted(0, 30, 0, 0)).top(), 30);
    }

    void sidebarListsTheNineTopicsInOrderAndSelects() {
        MarquetryHelpView view;
        auto* sidebar = view.findChild<QListWidget*>();
        QVERIFY(sidebar != nullptr);
        QStringList titles;
        for (int row = 0; row < sidebar->count(); ++row)
            titles << sidebar->item(row)->text();
        QCOMPARE(titles, (QStringList{"Welcome", "Get Started", "Main Interface", "Chop Models", "Mashup Mode",
                                      "Playback", "Export", "License & Terms", "Troubleshooting"}));
        QCOMPARE(sidebar->width(), 260);
        QCOMPARE(view.minimumSize(), QSize(860, 580));

        sidebar->setCurrentRow(3);
        QCOMPARE(view.selected(), HelpTopic::chopModels);
        QVERIFY(labelWithText(view, QStringLiteral("Interlock")) != nullptr);
        QVERIFY(labelWithText(view, QStringLiteral("Get Started")) == nullptr);

        view.setSelected(HelpTopic::troubleshooting);
        QCOMPARE(sidebar->currentRow(), 8);
    }

    void pagesShowTheirTextInTheirFonts() {
        std::unique_ptr<QWidget> getStarted(MarquetryHelpView::page(HelpTopic::getStarted));
        QCOMPARE(labelTexts(*getStarted),
                 (QStringList{"Get Started", "1. Choose your Source Folder.", "2. Choose your Output Folder.",
                              "3. Select a source loop in the left list.",
                              "4. Set Slices, Variations, Chop Model, and optional Seed.", "5. Click Generate.",
                              "6. Audition loops by clicking source/generated waveforms.",
                              "7. Export selected variations."}));
        const QLabel* title = labelWithText(*getStarted, "Get Started");
        const QLabel* step = labelWithText(*getStarted, "5. Click Generate.");
        QVERIFY(title->font().bold());
        QVERIFY(QFontInfo(title->font()).pixelSize() > QFontInfo(step->font()).pixelSize());
        QVERIFY(!step->font().bold());

        std::unique_ptr<QWidget> trouble(MarquetryHelpView::page(HelpTopic::troubleshooting));
#ifdef Q_OS_MACOS
        const QString noAudio = "No audio: verify macOS output and raise Master Fader.";
#else
        const QString noAudio = "No audio: verify your system's audio output and raise Master Fader.";
#endif
        QCOMPARE(labelTexts(*trouble).value(2), noAudio);

        std::unique_ptr<QWidget> welcome(MarquetryHelpView::page(HelpTopic::welcome));
        const QLabel* version = labelWithText(*welcome, "Version v0.1.0-beta.1");
        QVERIFY(version != nullptr);
        QVERIFY(version->font().bold());
        QVERIFY(version->palette().color(QPalette::WindowText).alpha() < 255);
        QVERIFY(labelWithText(*welcome, "Welcome") == nullptr);

        // Every page but Welcome opens with its title; the chop models each
        // have a heading, and only the closing note is secondary.
        for (HelpTopic topic : ui::allHelpTopics()) {
            const ui::HelpPage page = ui::helpPage(topic);
            if (topic != HelpTopic::welcome)
                QCOMPARE(page.blocks.front(), (ui::HelpBlock{ui::HelpBlock::Style::title, ui::helpTopicTitle(topic)}));
        }
        const ui::HelpPage models = ui::helpPage(HelpTopic::chopModels);
        QCOMPARE(models.blocks.size(), std::size_t{1 + 9 * 2 + 1});
        QCOMPARE(models.blocks[1].extraSpaceAbove, 0);
        QCOMPARE(models.blocks[3].extraSpaceAbove, 4);
        QVERIFY(models.blocks.back().secondary && models.blocks.back().extraSpaceAbove == 6);
        const ui::HelpPage terms = ui::helpPage(HelpTopic::licenseTerms);
        QCOMPARE(terms.blocks.size(), std::size_t{1 + 1 + 7 + 1});
        QVERIFY(terms.blocks[8].text.startsWith("7. "));
    }

    void welcomeHeaderShowsTheLogoOrTheProductName() {
        std::unique_ptr<QWidget> withLogo(ui::makeWelcomeHeader(solidImage(600, 240)));
        const QLabel* logo = withLogo->findChild<QLabel*>("welcomeLogo");
        QVERIFY(!logo->pixmap().isNull());
        QCOMPARE(logo->pixmap().deviceIndependentSize(), QSizeF(300, 120));

        std::unique_ptr<QWidget> withoutLogo(ui::makeWelcomeHeader(std::nullopt));
        const QLabel* name = withoutLogo->findChild<QLabel*>("welcomeLogo");
        QCOMPARE(name->text(), QStringLiteral("Marquetry"));
        QVERIFY(name->pixmap().isNull());
        QVERIFY(name->font().bold());
        QVERIFY(QFontInfo(name->font()).pixelSize() > 3 * QFontInfo(QApplication::font()).pixelSize());
    }

    void logoIsLookedForInItsThreePlacesInOrder() {
        const std::optional<QImage> bundled = ui::appLogoImage();
        QVERIFY(bundled.has_value());
        QCOMPARE(bundled->size(), QSize(600, 240));
        QVERIFY(bundled->hasAlphaChannel());

        QTemporaryDir root;
        QVERIFY(root.isValid());
        const QDir dir(root.path());
        QVERIFY(dir.mkpath("app/bin") && dir.mkpath("app/Resources") && dir.mkpath("work"));
        const QString missing = ":/no-such-logo.png";
        const QString executableFolder = dir.filePath("app/bin");
        const QString currentFolder = dir.filePath("work");

        QVERIFY(!ui::findLogo({missing, executableFolder, currentFolder}).has_value());
        QVERIFY(solidImage(30, 10).save(dir.filePath("work/logo.png")));
        QCOMPARE(ui::findLogo({missing, executableFolder, currentFolder})->size(), QSize(30, 10));
        QCOMPARE(ui::findLogo({missing, {}, currentFolder})->size(), QSize(30, 10));
        QVERIFY(solidImage(20, 10).save(dir.filePath("app/Resources/logo.png")));
        QCOMPARE(ui::findLogo({missing, executableFolder, currentFolder})->size(), QSize(20, 10));
        QCOMPARE(ui::findLogo({":/logo.png", executableFolder, currentFolder})->size(), QSize(600, 240));

        // A file that is not an image does not count as found.
        QFile junk(dir.filePath("app/Resources/logo.png"));
        QVERIFY(junk.open(QIODevice::WriteOnly | QIODevice::Truncate) && junk.write("not a png") > 0);
        junk.close();
        QCOMPARE(ui::findLogo({missing, executableFolder, currentFolder})->size(), QSize(30, 10));
    }

    void launchSourceFolderIsReadButNeverStored() {
        model::test::FakeSettings stored;
        stored.values[model::AppModel::sourceDirKey] = "/stored/source";
        stored.values[model::AppModel::outputDirKey] = "/stored/output";

        ui::LaunchSettings plain(stored, std::nullopt);
        QCOMPARE(plain.string(model::AppModel::sourceDirKey), std::optional<std::string>("/stored/source"));

        ui::LaunchSettings launch(stored, "/launch/loops");
        QCOMPARE(launch.string(model::AppModel::sourceDirKey), std::optional<std::string>("/launch/loops"));
        QCOMPARE(launch.string(model::AppModel::outputDirKey), std::optional<std::string>("/stored/output"));
        QCOMPARE(stored.values[model::AppModel::sourceDirKey], std::string("/stored/source"));

        launch.setString(model::AppModel::sourceDirKey, "/saved/source");
        QCOMPARE(stored.values[model::AppModel::sourceDirKey], std::string("/saved/source"));
    }
};

QTEST_MAIN(HelpPanelsTest)
#include "HelpPanelsTest.moc"
