#include "ui/ContentView.hpp"

#include "chop/ChopRecipe.hpp"
#include "chop/JoinFades.hpp"
#include "model/FileSystem.hpp"
#include "ui/AppLogo.hpp"
#include "ui/ClampingSpinBox.hpp"
#include "ui/Controls.hpp"
#include "ui/SourceList.hpp"
#include "ui/VariationListPanel.hpp"
#include "ui/WaveformView.hpp"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDrag>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QSplitter>
#include <QStandardPaths>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <span>

namespace marquetry::ui {
namespace {

using playback::PlaybackTarget;

constexpr int pathFieldWidth = 620;
constexpr int minimumContentWidth = 1040;
constexpr int minimumContentHeight = 700;
constexpr int margin = 16;
constexpr int panelSpacing = 12;
constexpr int defaultSourceListWidth = 280;
// What Smooth joins offers when first ticked: short enough to keep the
// attack of a hit, long enough to take the click out of a join.
constexpr int defaultJoinFadeMs = 5;

} // namespace

int ContentView::sourceListWidth() const {
    return panels_->sizes().at(0);
}

void ContentView::setSourceListWidth(int width) {
    // The rest of the window to the right, which gets all a wider window
    // gains; the splitter keeps both within their minimum widths.
    const int total = std::max(panels_->width(), minimumContentWidth - 2 * margin - panelSpacing);
    panels_->setSizes({width, std::max(total - width, panels_->widget(1)->minimumSizeHint().width())});
}

QString ContentView::dragFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::CacheLocation) + QStringLiteral("/drag");
}

void ContentView::dragOut(const PlaybackTarget& target) {
    const auto path = model_->writeDragFile(target, dragFolder().toStdString());
    if (!path)
        return;
    auto* mime = new QMimeData;
    mime->setUrls({QUrl::fromLocalFile(QString::fromStdString(*path))});
    QDrag drag(this);
    drag.setMimeData(mime);
    if (dragRunner_)
        dragRunner_(drag);
    else
        drag.exec(Qt::CopyAction);
}

ContentView::ContentView(model::Platform platform, AudioFileChooser chooseAudioFiles,
                         std::optional<std::string> initialSelection, QWidget* parent)
    : QWidget(parent), chooseAudioFiles_(std::move(chooseAudioFiles)), importFolder_(platform.homeFolder),
      model_(std::make_unique<model::AppModel>(std::move(platform), std::move(initialSelection))) {
    setMinimumSize(minimumContentWidth, minimumContentHeight);
    // A drop target may still be reading a file dragged a moment ago,
    // perhaps from another window: only older ones go.
    model::removeOldFiles(dragFolder().toStdString(), std::chrono::minutes(1));
    layout_ = new QVBoxLayout(this);
    layout_->setContentsMargins(margin, margin, margin, margin);
    layout_->setSpacing(12);

    layout_->addWidget(buildHeader());
    layout_->addWidget(buildSourceRow());
    layout_->addWidget(generateRow_ = buildGenerateRow());
    glitchRow_ = buildGlitchRow();
    glitchRow_->hide();
    layout_->addWidget(masterRow_ = buildMasterRow());
    layout_->addWidget(buildSoundRow());
    layout_->addWidget(buildPanels(), 1);
    layout_->addWidget(buildSelectionRow());
    layout_->addWidget(buildMessageBar());
    layout_->addWidget(buildOutputRow());
    buildCommands();

    model_->subscribe([this](const model::AppModel::Change& change) { redraw(change); });
    for (const Field field :
         {Field::sourceDir, Field::outputDir, Field::wavFiles, Field::selectedFile, Field::settings, Field::mashupMode,
          Field::mashupSourcePaths, Field::masterVolume, Field::status, Field::isGenerating, Field::sourceWaveform,
          Field::generatedLoops, Field::playingTarget, Field::playbackProgress, Field::lastRun, Field::tempo,
          Field::runHistory, Field::sourceFacts, Field::warning, Field::generationProgress})
        redraw({field, {}, false});
    model_->readSourceFactsInBackground();
}

ContentView::~ContentView() {
    // The controls go first, while the model their callbacks reach still
    // exists; the model then ends any stream without telling anyone.
    qDeleteAll(findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly));
}

// Layout ----------------------------------------------------------------------

QWidget* ContentView::buildHeader() {
    auto* header = new QWidget(this);
    auto* row = rowLayout(header);
    row->setContentsMargins(0, 2, 0, 2);
    row->addStretch(1);
    auto* logo = new QLabel(header);
    logo->setObjectName(QStringLiteral("logo"));
    if (const std::optional<QImage> image = appLogoImage(); image && !image->isNull()) {
        const qreal ratio = devicePixelRatioF();
        QPixmap pixmap = QPixmap::fromImage(
            image->scaledToHeight(static_cast<int>(std::lround(120 * ratio)), Qt::SmoothTransformation));
        pixmap.setDevicePixelRatio(ratio);
        logo->setPixmap(pixmap);
    } else {
        logo->setText(QStringLiteral("Marquetry"));
        QFont font = logo->font();
        font.setPointSize(52);
        font.setBold(true);
        logo->setFont(font);
    }
    row->addWidget(logo);
    row->addStretch(1);
    return header;
}

QWidget* ContentView::buildSourceRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("sourceRow"));
    auto* row = rowLayout(rowWidget);
    row->addWidget(new QLabel(QStringLiteral("Source Folder"), rowWidget));
    sourceField_ = new QLineEdit(rowWidget);
    sourceField_->setObjectName(QStringLiteral("sourceField"));
    sourceField_->setMinimumWidth(pathFieldWidth);
    row->addWidget(sourceField_);
    auto* choose = button(QStringLiteral("Choose…"), "chooseSourceButton", rowWidget);
    auto* refresh = button(QStringLiteral("Refresh"), "refreshButton", rowWidget);
    auto* save = button(QStringLiteral("Save as Default"), "saveSourceButton", rowWidget);
    row->addWidget(choose);
    row->addWidget(refresh);
    row->addWidget(save);
    row->addStretch(1);

    connect(sourceField_, &QLineEdit::textEdited, this,
            [this](const QString& text) { model_->setSourceDir(text.toStdString()); });
    connect(sourceField_, &QLineEdit::returnPressed, this, [this] { model_->refreshFiles(); });
    connect(choose, &QPushButton::clicked, this, [this] { model_->chooseSourceFolder(); });
    connect(refresh, &QPushButton::clicked, this, [this] { model_->refreshFiles(); });
    connect(save, &QPushButton::clicked, this, [this] { model_->saveSourceAsDefault(); });
    return rowWidget;
}

QWidget* ContentView::buildGenerateRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("generateRow"));
    auto* row = rowLayout(rowWidget);

    generateButton_ = button(QStringLiteral("Generate"), "generateButton", rowWidget);
    generateButton_->setFont(look::headlineFont(font()));
    // Room for the longer title keeps the row from shifting while busy.
    const QFontMetrics metrics(generateButton_->font());
    generateButton_->setMinimumSize(metrics.horizontalAdvance(QStringLiteral("Generating...")) + 2 * 24,
                                    metrics.height() + 2 * 8);
    row->addWidget(generateButton_);

    // Back and Forward through the runs of this session: two small arrows
    // one above the other beside Generate, as high as it is, so that the
    // row stays narrower than the folder rows and no listed control moves.
    auto* historyColumn = new QWidget(rowWidget);
    auto* historyLayout = new QVBoxLayout(historyColumn);
    historyLayout->setContentsMargins(0, 0, 0, 0);
    historyLayout->setSpacing(0);
    const QSize arrowSize(22, generateButton_->minimumHeight() / 2);
    const auto historyButton = [historyColumn, historyLayout, arrowSize](Qt::ArrowType arrow, const char* name,
                                                                         const QString& tip) {
        auto* made = new QToolButton(historyColumn);
        made->setObjectName(QString::fromLatin1(name));
        made->setArrowType(arrow);
        made->setAutoRaise(true);
        made->setFixedSize(arrowSize);
        made->setToolTip(tip);
        historyLayout->addWidget(made);
        return made;
    };
    backButton_ = historyButton(Qt::LeftArrow, "backButton",
                                QStringLiteral("Bring back the variations of the run before (Ctrl+Z)"));
    forwardButton_ = historyButton(Qt::RightArrow, "forwardButton",
                                   QStringLiteral("Bring back the variations of the run after (Ctrl+Shift+Z)"));
    row->addWidget(historyColumn);

    slicesBox_ = new ClampingSpinBox(rowWidget);
    slicesBox_->setObjectName(QStringLiteral("slicesBox"));
    slicesBox_->setPrefix(QStringLiteral("Slices: "));
    slicesBox_->setRange(4, 128);
    row->addWidget(slicesBox_);

    versionsBox_ = new ClampingSpinBox(rowWidget);
    versionsBox_->setObjectName(QStringLiteral("variationsBox"));
    versionsBox_->setPrefix(QStringLiteral("Variations: "));
    versionsBox_->setRange(1, 100);
    row->addWidget(versionsBox_);

    auto* chopLabel = new QLabel(QStringLiteral("Chop Model"), rowWidget);
    row->addWidget(chopLabel);
    chopModelBox_ = new QComboBox(rowWidget);
    chopModelBox_->setObjectName(QStringLiteral("chopModelBox"));
    chopLabel->setBuddy(chopModelBox_);
    for (const chop::ChopModel chopModel : chop::allChopModels) {
        const std::string_view text = chop::label(chopModel);
        chopModelBox_->addItem(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    }
    chopModelBox_->setFixedWidth(180);
    row->addWidget(chopModelBox_);

    // The warning that the last mashup pooled loops of other formats as raw
    // bytes sits under the box, like the seed of the run under the Seed
    // field, so the row keeps its width.
    auto* mashupBlock = new QWidget(rowWidget);
    auto* mashupColumn = new QVBoxLayout(mashupBlock);
    mashupColumn->setContentsMargins(0, 0, 0, 0);
    mashupColumn->setSpacing(0);
    mashupBox_ = new QCheckBox(QStringLiteral("Mashup Mode"), mashupBlock);
    mashupBox_->setObjectName(QStringLiteral("mashupModeBox"));
    mashupColumn->addWidget(mashupBox_);
    formatMismatchLabel_ = secondaryCaption(QString(), "formatMismatchLabel", mashupBlock);
    formatMismatchLabel_->setFixedHeight(formatMismatchLabel_->fontMetrics().height());
    formatMismatchLabel_->setStyleSheet(QStringLiteral("color: #c0392b;"));
    mashupColumn->addWidget(formatMismatchLabel_);
    row->addWidget(mashupBlock);

    // The seed of the last run sits under the Seed field and its Use button
    // rather than beside them, so the row stays narrower than the folder rows.
    auto* seedBlock = new QWidget(rowWidget);
    auto* seedGrid = new QGridLayout(seedBlock);
    seedGrid->setContentsMargins(0, 0, 0, 0);
    seedGrid->setVerticalSpacing(0);
    seedField_ = new QLineEdit(seedBlock);
    seedField_->setObjectName(QStringLiteral("seedField"));
    seedField_->setPlaceholderText(QStringLiteral("Seed (optional)"));
    seedField_->setFixedWidth(160);
    seedGrid->addWidget(seedField_, 0, 0);
    useSeedButton_ = new QToolButton(seedBlock);
    useSeedButton_->setObjectName(QStringLiteral("useSeedButton"));
    useSeedButton_->setText(QStringLiteral("Use"));
    useSeedButton_->setToolTip(QStringLiteral("Put the seed of the last run into the Seed field"));
    // Hidden before the first run without the row moving when it appears.
    QSizePolicy keepsItsPlace = useSeedButton_->sizePolicy();
    keepsItsPlace.setRetainSizeWhenHidden(true);
    useSeedButton_->setSizePolicy(keepsItsPlace);
    seedGrid->addWidget(useSeedButton_, 0, 1);
    seedOfRunLabel_ = secondaryCaption(QString(), "seedOfRunLabel", seedBlock);
    seedOfRunLabel_->setFixedHeight(seedOfRunLabel_->fontMetrics().height());
    seedOfRunLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    seedGrid->addWidget(seedOfRunLabel_, 1, 0, 1, 2);
    row->addWidget(seedBlock);
    row->addStretch(1);

    connect(generateButton_, &QPushButton::clicked, this, [this] {
        if (model_->isGenerating())
            model_->cancelGeneration();
        else
            model_->generate();
    });
    connect(backButton_, &QToolButton::clicked, this, [this] { model_->goBack(); });
    connect(forwardButton_, &QToolButton::clicked, this, [this] { model_->goForward(); });
    connect(slicesBox_, &QSpinBox::valueChanged, this,
            [this](int value) { model_->changeSettings([value](model::RunSettings& s) { s.plan.sliceCount = value; }); });
    connect(versionsBox_, &QSpinBox::valueChanged, this,
            [this](int value) { model_->changeSettings([value](model::RunSettings& s) { s.plan.variationCount = value; }); });
    connect(chopModelBox_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (index >= 0 && static_cast<std::size_t>(index) < chop::allChopModels.size())
            model_->changeSettings([index](model::RunSettings& s) {
                s.plan.chopModel = chop::allChopModels[static_cast<std::size_t>(index)];
            });
    });
    connect(mashupBox_, &QCheckBox::toggled, this, [this](bool on) { model_->setMashupMode(on); });
    connect(seedField_, &QLineEdit::textEdited, this, [this](const QString& text) {
        model_->changeSettings([seed = text.toStdString()](model::RunSettings& s) { s.seedText = seed; });
    });
    connect(useSeedButton_, &QToolButton::clicked, this, [this] {
        if (model_->lastRun())
            model_->changeSettings([seed = std::to_string(model_->lastRun()->seed)](model::RunSettings& s) { s.seedText = seed; });
    });
    return rowWidget;
}

QWidget* ContentView::buildGlitchRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("glitchRow"));
    auto* row = rowLayout(rowWidget, 10);
    row->addWidget(new QLabel(QStringLiteral("Glitch Amount"), rowWidget));
    glitchSlider_ = addFader(row, glitchValue_, "glitchSlider", rowWidget);
    row->addWidget(
        secondaryCaption(QStringLiteral("Controls pitch warp depth and glitch density."), "glitchCaption", rowWidget));
    row->addStretch(1);
    connect(glitchSlider_, &QSlider::valueChanged, this, [this](int value) {
        model_->changeSettings([value](model::RunSettings& s) { s.plan.glitchAmount = static_cast<double>(value) / sliderSteps; });
    });
    return rowWidget;
}

QWidget* ContentView::buildMasterRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("masterRow"));
    auto* row = rowLayout(rowWidget, 10);
    row->addWidget(new QLabel(QStringLiteral("Master Fader"), rowWidget));
    masterSlider_ = addFader(row, masterValue_, "masterSlider", rowWidget);
    modeHint_ = secondaryCaption(QString(), "modeHint", rowWidget);
    row->addWidget(modeHint_);
    row->addStretch(1);
    connect(masterSlider_, &QSlider::valueChanged, this,
            [this](int value) { model_->setMasterVolume(static_cast<double>(value) / sliderSteps); });
    return rowWidget;
}

// One row under the faders, like them a row of the window's own, so the
// panels give way before any of its controls does, whatever rows the chop
// model adds above it.
QWidget* ContentView::buildSoundRow() {
    auto* group = new QWidget(this);
    group->setObjectName(QStringLiteral("soundGroup"));
    auto* row = rowLayout(group, 10);
    row->addWidget(new QLabel(QStringLiteral("Sound"), group));
    joinFadeBox_ = new QCheckBox(QStringLiteral("Smooth joins"), group);
    joinFadeBox_->setObjectName(QStringLiteral("joinFadeBox"));
    joinFadeBox_->setToolTip(QStringLiteral("Fade each slice in and out so joins and the loop seam do not click"));
    // The length beside its checkbox, closer than the other options.
    auto* joinFade = new QHBoxLayout;
    joinFade->setSpacing(4);
    joinFade->addWidget(joinFadeBox_);
    row->addLayout(joinFade);
    joinFadeMsBox_ = new ClampingSpinBox(group);
    joinFadeMsBox_->setObjectName(QStringLiteral("joinFadeMsBox"));
    joinFadeMsBox_->setSuffix(QStringLiteral(" ms"));
    joinFadeMsBox_->setRange(1, static_cast<int>(chop::maxJoinFadeMs));
    joinFadeMsBox_->setValue(defaultJoinFadeMs);
    joinFade->addWidget(joinFadeMsBox_);
    fitBox_ = new QComboBox(group);
    fitBox_->setObjectName(QStringLiteral("fitBox"));
    fitBox_->addItems({QStringLiteral("Length as cut"), QStringLiteral("Trim to loop"), QStringLiteral("Stretch to loop")});
    fitBox_->setToolTip(QStringLiteral("Bring every variation to the length of the selected loop, so it sits on the "
                                       "bar grid: cut or padded with silence, or time-stretched with its pitch kept"));
    row->addWidget(fitBox_);
    matchFormatsBox_ = new QCheckBox(QStringLiteral("Match formats"), group);
    matchFormatsBox_->setObjectName(QStringLiteral("matchFormatsBox"));
    matchFormatsBox_->setToolTip(QStringLiteral("Mashup Mode: convert the checked loops to the selected loop's "
                                                "channels, bit depth and sample rate before slicing"));
    row->addWidget(matchFormatsBox_);
    matchTempoBox_ = new QCheckBox(QStringLiteral("Match tempo"), group);
    matchTempoBox_->setObjectName(QStringLiteral("matchTempoBox"));
    matchTempoBox_->setToolTip(QStringLiteral("Mashup Mode: stretch the checked loops to the selected loop's tempo "
                                              "before slicing, keeping their pitch"));
    row->addWidget(matchTempoBox_);
    row->addStretch(1);

    connect(joinFadeBox_, &QCheckBox::toggled, this, [this](bool on) {
        model_->changeSettings([ms = on ? joinFadeMsBox_->value() : 0](model::RunSettings& s) { s.plan.joinFadeMs = ms; });
    });
    connect(joinFadeMsBox_, &QSpinBox::valueChanged, this, [this](int value) {
        if (joinFadeBox_->isChecked())
            model_->changeSettings([value](model::RunSettings& s) { s.plan.joinFadeMs = value; });
    });
    connect(fitBox_, &QComboBox::currentIndexChanged, this, [this](int index) {
        model_->changeSettings([index](model::RunSettings& s) { s.plan.fit = static_cast<chop::FitMode>(std::clamp(index, 0, 2)); });
    });
    connect(matchFormatsBox_, &QCheckBox::toggled, this,
            [this](bool on) { model_->changeSettings([on](model::RunSettings& s) { s.matchFormats = on; }); });
    connect(matchTempoBox_, &QCheckBox::toggled, this,
            [this](bool on) { model_->changeSettings([on](model::RunSettings& s) { s.matchTempo = on; }); });
    return group;
}

QWidget* ContentView::buildPanels() {
    // The source list starts at its usual width; its handle, as wide as the
    // spacing it stands for, widens it for folders of long, similar names.
    auto* panels = panels_ = new QSplitter(Qt::Horizontal, this);
    panels->setObjectName(QStringLiteral("panels"));
    panels->setHandleWidth(panelSpacing);
    panels->setChildrenCollapsible(false);

    // Import... heads the list it fills rather than joining the source row,
    // which already sets the window's minimum width. On top, since a window
    // at its minimum size cuts off the bottom of the panels. Files dropped
    // anywhere on the column are imported too.
    auto* sourcePanel = new QWidget(panels);
    sourcePanel->setObjectName(QStringLiteral("sourcePanel"));
    sourcePanel->setMinimumWidth(200);
    sourcePanel->setMinimumHeight(420);
    auto* sourceColumn = new QVBoxLayout(sourcePanel);
    sourceColumn->setContentsMargins(0, 0, 0, 0);
    sourceColumn->setSpacing(6);
    auto* import = button(QStringLiteral("Import..."), "importButton", sourcePanel);
    import->setToolTip(QStringLiteral("Convert audio files of any common format into the source folder as WAV. "
                                      "Files dropped on the list are imported the same way."));
    sourceColumn->addWidget(import, 0, Qt::AlignLeft);
    sourceList_ = new SourceList(*model_, sourcePanel);
    sourceList_->setObjectName(QStringLiteral("sourceList"));
    // The keys of eventFilter.
    sourceList_->installEventFilter(this);
    sourceColumn->addWidget(sourceList_, 1);
    panels->addWidget(sourcePanel);

    auto* right = new QWidget(panels);
    right->setObjectName(QStringLiteral("rightPanel"));
    right->setMinimumHeight(420);
    auto* stack = new QVBoxLayout(right);
    stack->setContentsMargins(0, 0, 0, 0);
    stack->setSpacing(10);
    stack->addWidget(heading(QStringLiteral("Source Loop Waveform"), right));

    sourceWaveform_ = new WaveformView(right);
    sourceWaveform_->setObjectName(QStringLiteral("sourceWaveform"));
    sourceWaveform_->setColor(look::blue());
    sourceWaveform_->setFixedHeight(90);
    sourceWaveform_->setFocusPolicy(Qt::StrongFocus);
    sourceWaveform_->installEventFilter(this);
    stack->addWidget(sourceWaveform_);

    sourceCaption_ = new QLabel(right);
    sourceCaption_->setObjectName(QStringLiteral("sourceCaption"));
    sourceCaption_->setFont(look::captionFont(font()));
    // The loop's tempo beside the caption, with a field to correct it.
    auto* captionRow = new QHBoxLayout;
    captionRow->setSpacing(8);
    captionRow->addWidget(sourceCaption_);
    captionRow->addStretch(1);
    sourceTempo_ = new QLabel(right);
    sourceTempo_->setObjectName(QStringLiteral("sourceTempo"));
    sourceTempo_->setFont(look::captionFont(font()));
    captionRow->addWidget(sourceTempo_);
    sourceTempoField_ = new QLineEdit(right);
    sourceTempoField_->setObjectName(QStringLiteral("sourceTempoField"));
    sourceTempoField_->setFont(look::captionFont(font()));
    sourceTempoField_->setPlaceholderText(QStringLiteral("BPM"));
    sourceTempoField_->setToolTip(QString::fromStdString("Correct the loop's tempo (" + chop::tempoRangeText()
                                                         + " BPM); empty uses the estimate"));
    sourceTempoField_->setFixedWidth(sourceTempoField_->fontMetrics().horizontalAdvance(QStringLiteral("000.0")) + 16);
    captionRow->addWidget(sourceTempoField_);
    connect(sourceTempoField_, &QLineEdit::editingFinished, this, [this] {
        if (!model_->selectedFile())
            return;
        const QString text = sourceTempoField_->text().trimmed();
        bool ok = false;
        const double bpm = text.toDouble(&ok);
        model_->setTempoOverride(*model_->selectedFile(),
                                 text.isEmpty() ? std::nullopt : std::optional(ok ? bpm : std::nan("")));
    });
    // The meter, corrected like the tempo: after "estimate", item i holds
    // i + 2 quarter notes a bar.
    sourceMeterBox_ = new QComboBox(right);
    sourceMeterBox_->setObjectName(QStringLiteral("sourceMeterBox"));
    sourceMeterBox_->setFont(look::captionFont(font()));
    sourceMeterBox_->addItems({QStringLiteral("Meter: estimate"), QStringLiteral("3/4"), QStringLiteral("4/4")});
    sourceMeterBox_->setToolTip(QStringLiteral("Correct the loop's meter (6/8 counts as 3/4); estimate uses the "
                                               "meter heard in the loop"));
    captionRow->addWidget(sourceMeterBox_);
    connect(sourceMeterBox_, &QComboBox::currentIndexChanged, this, [this](int index) {
        if (model_->selectedFile())
            model_->setMeterOverride(*model_->selectedFile(),
                                     index <= 0 ? std::nullopt : std::optional<std::int64_t>(index + 2));
    });
    stack->addLayout(captionRow);

    auto* divider = new QFrame(right);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    stack->addWidget(divider);
    stack->addWidget(heading(QStringLiteral("Generated Variations"), right));

    loopList_ = new VariationListPanel(
        [this](const playback::Uuid& id, bool on) { model_->toggleSelection(id, on); },
        [this](const playback::Uuid& id) {
            // Look the loop up again: the list may have been replaced since
            // its row was built.
            if (const model::GeneratedLoop* loop = model_->findGeneratedLoop(id))
                model_->togglePlayback(*loop);
        },
        right);
    loopList_->setObjectName(QStringLiteral("loopList"));
    loopList_->setOnDrag([this](const playback::Uuid& id) { dragOut(PlaybackTarget::generated(id)); });
    stack->addWidget(loopList_, 1);

    panels->addWidget(right);
    panels->setStretchFactor(0, 0);
    panels->setStretchFactor(1, 1);
    setSourceListWidth(defaultSourceListWidth);

    connect(import, &QPushButton::clicked, this, [this] { importChosenFiles(); });
    acceptFileDrops(sourcePanel, [this](const std::vector<std::string>& files) { model_->importFiles(files); });
    connect(sourceWaveform_, &WaveformView::clicked, this, [this] { model_->toggleSourcePlayback(); });
    connect(sourceWaveform_, &WaveformView::dragStarted, this, [this] { dragOut(PlaybackTarget::source()); });
    return panels;
}

QWidget* ContentView::buildSelectionRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("selectionRow"));
    auto* row = rowLayout(rowWidget);
    selectAllButton_ = button(QStringLiteral("Select All"), "selectAllButton", rowWidget);
    selectNoneButton_ = button(QStringLiteral("Select None"), "selectNoneButton", rowWidget);
    exportButton_ = button(QStringLiteral("Export Selected"), "exportButton", rowWidget);
    row->addWidget(selectAllButton_);
    row->addWidget(selectNoneButton_);
    row->addWidget(exportButton_);
    // What Export Selected writes besides the loops, and what it does with
    // a name taken.
    auto* exportOptions = new QWidget(rowWidget);
    exportOptions->setObjectName(QStringLiteral("exportOptions"));
    auto* options = rowLayout(exportOptions);
    row->addWidget(exportOptions);
    manifestBox_ = new QCheckBox(QStringLiteral("Write manifest"), exportOptions);
    manifestBox_->setObjectName(QStringLiteral("manifestBox"));
    manifestBox_->setToolTip(
        QStringLiteral("Export also writes a JSON manifest of the run, from which the command line can replay it"));
    options->addWidget(manifestBox_);
    tagsBox_ = new QCheckBox(QStringLiteral("Tempo tags"), exportOptions);
    tagsBox_->setObjectName(QStringLiteral("tagsBox"));
    tagsBox_->setToolTip(QStringLiteral("Exported files also carry the loop's tempo, a loop over the whole file and "
                                        "a marker at every slice, for samplers and DAWs"));
    options->addWidget(tagsBox_);
    kitBox_ = new QCheckBox(QStringLiteral("Slice kit"), exportOptions);
    kitBox_->setObjectName(QStringLiteral("kitBox"));
    kitBox_->setToolTip(QStringLiteral("Export also writes the slices, an SFZ instrument and a MIDI file per loop "
                                       "that plays it, into the kit folder inside the Output Folder"));
    options->addWidget(kitBox_);
    auto* keepLabel = new QLabel(QStringLiteral("When a file exists"), exportOptions);
    options->addWidget(keepLabel);
    keepExistingBox_ = new QComboBox(exportOptions);
    keepExistingBox_->setObjectName(QStringLiteral("keepExistingBox"));
    keepExistingBox_->addItems({QStringLiteral("Replace"), QStringLiteral("Keep both")});
    keepExistingBox_->setToolTip(QStringLiteral(
        "Keep both writes the new file as NAME-2.wav, NAME-3.wav, ... and never touches an existing file"));
    keepLabel->setBuddy(keepExistingBox_);
    options->addWidget(keepExistingBox_);
    statusLine_ = statusLine(rowWidget);
    statusLine_->setObjectName(QStringLiteral("statusLine"));
    row->addWidget(statusLine_, 1);
    // Shown only while a run goes, so the idle row is as it always was.
    progressBar_ = new QProgressBar(rowWidget);
    progressBar_->setObjectName(QStringLiteral("generationProgress"));
    progressBar_->setTextVisible(false);
    progressBar_->setFixedWidth(160);
    progressBar_->hide();
    row->addWidget(progressBar_);
    progressPoll_ = new QTimer(this);
    progressPoll_->setInterval(100);
    connect(progressPoll_, &QTimer::timeout, this, [this] { model_->readGenerationProgress(); });

    connect(selectAllButton_, &QPushButton::clicked, this, [this] { model_->setAllSelected(true); });
    connect(selectNoneButton_, &QPushButton::clicked, this, [this] { model_->setAllSelected(false); });
    connect(exportButton_, &QPushButton::clicked, this, [this] { model_->exportSelected(); });
    connect(manifestBox_, &QCheckBox::toggled, this,
            [this](bool on) { model_->changeSettings([on](model::RunSettings& s) { s.exportOptions.manifest = on; }); });
    connect(tagsBox_, &QCheckBox::toggled, this,
            [this](bool on) { model_->changeSettings([on](model::RunSettings& s) { s.exportOptions.tags = on; }); });
    connect(kitBox_, &QCheckBox::toggled, this,
            [this](bool on) { model_->changeSettings([on](model::RunSettings& s) { s.exportOptions.kit = on; }); });
    connect(keepExistingBox_, &QComboBox::currentIndexChanged, this, [this](int index) {
        model_->changeSettings([index](model::RunSettings& s) { s.exportOptions.keepExisting = index == 1; });
    });
    return rowWidget;
}

// Under the status line, which has room for a glance only: the last warning,
// whole, until the user dismisses it.
QWidget* ContentView::buildMessageBar() {
    messageBar_ = new QFrame(this);
    messageBar_->setObjectName(QStringLiteral("messageBar"));
    messageBar_->setFrameShape(QFrame::StyledPanel);
    messageBar_->setStyleSheet(QStringLiteral("#messageBar { background: #fff4d6; border: 1px solid #e0b84c; "
                                              "border-radius: 4px; } #messageBar QLabel { color: #5c4400; }"));
    auto* row = rowLayout(messageBar_, 8);
    row->setContentsMargins(8, 4, 4, 4);
    warningLabel_ = new QLabel(messageBar_);
    warningLabel_->setObjectName(QStringLiteral("warningLabel"));
    warningLabel_->setWordWrap(true);
    warningLabel_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row->addWidget(warningLabel_, 1);
    auto* dismiss = new QToolButton(messageBar_);
    dismiss->setObjectName(QStringLiteral("dismissWarningButton"));
    dismiss->setText(QStringLiteral("Dismiss"));
    dismiss->setAutoRaise(true);
    row->addWidget(dismiss, 0, Qt::AlignTop);
    connect(dismiss, &QToolButton::clicked, this, [this] { model_->dismissWarning(); });
    return messageBar_;
}

QWidget* ContentView::buildOutputRow() {
    auto* rowWidget = new QWidget(this);
    rowWidget->setObjectName(QStringLiteral("outputRow"));
    auto* row = rowLayout(rowWidget);
    row->addWidget(new QLabel(QStringLiteral("Output Folder"), rowWidget));
    outputField_ = new QLineEdit(rowWidget);
    outputField_->setObjectName(QStringLiteral("outputField"));
    outputField_->setMinimumWidth(pathFieldWidth);
    row->addWidget(outputField_);
    auto* choose = button(QStringLiteral("Choose…"), "chooseOutputButton", rowWidget);
#ifdef Q_OS_MACOS
    auto* show = button(QStringLiteral("Show in Finder"), "showOutputButton", rowWidget);
#else
    auto* show = button(QStringLiteral("Show in File Manager"), "showOutputButton", rowWidget);
#endif
    auto* save = button(QStringLiteral("Save as Default"), "saveOutputButton", rowWidget);
    row->addWidget(choose);
    row->addWidget(show);
    row->addWidget(save);
    row->addStretch(1);

    connect(outputField_, &QLineEdit::textEdited, this,
            [this](const QString& text) { model_->setOutputDir(text.toStdString()); });
    connect(outputField_, &QLineEdit::returnPressed, this, [this] { model_->expandOutputDir(); });
    connect(choose, &QPushButton::clicked, this, [this] { model_->chooseOutputFolder(); });
    connect(show, &QPushButton::clicked, this, [this] { model_->showOutputInFinder(); });
    connect(save, &QPushButton::clicked, this, [this] { model_->saveOutputAsDefault(); });
    return rowWidget;
}

void ContentView::buildCommands() {
    const auto command = [this](const QString& text, std::initializer_list<QKeySequence> keys, auto&& run) {
        auto* action = new QAction(text, this);
        action->setShortcuts(QList<QKeySequence>(keys));
        connect(action, &QAction::triggered, this, std::forward<decltype(run)>(run));
        addAction(action);
        return action;
    };
    commands_.generate = command(QStringLiteral("Generate"),
                                 {QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter)},
                                 [this] { model_->generate(); });
    commands_.exportSelected = command(QStringLiteral("Export Selected"), {QKeySequence(Qt::CTRL | Qt::Key_E)},
                                       [this] { model_->exportSelected(); });
    commands_.back = command(QStringLiteral("Back"), {QKeySequence(Qt::CTRL | Qt::Key_Z)}, [this] { model_->goBack(); });
    commands_.forward = command(QStringLiteral("Forward"), {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z)},
                                [this] { model_->goForward(); });
    commands_.stopPlayback = command(QStringLiteral("Stop Playback"), {QKeySequence(Qt::Key_Escape)},
                                     [this] { stopPlaybackCommand(); });
}

void ContentView::stopPlaybackCommand() {
    if (model_->isGenerating()) {
        model_->cancelGeneration();
        return;
    }
    const std::optional<PlaybackTarget> playing = model_->playingTarget();
    if (!playing)
        return;
    // The same words as stopping by a click on what plays.
    if (playing->kind == PlaybackTarget::Kind::source)
        model_->toggleSourcePlayback();
    else if (const model::GeneratedLoop* loop = model_->findGeneratedLoop(playing->id))
        model_->togglePlayback(*loop);
    else
        model_->stopPlayback();
}

void ContentView::selectSource(std::size_t index) {
    const std::vector<std::string>& files = model_->wavFiles();
    if (index >= files.size())
        return;
    if (model_->selectedFile() != files[index])
        model_->selectFile(files[index]);
    sourceList_->showRow(index);
}

bool ContentView::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() != QEvent::KeyPress || (watched != sourceList_ && watched != sourceWaveform_))
        return QWidget::eventFilter(watched, event);
    const auto* key = static_cast<QKeyEvent*>(event);
    if ((key->modifiers() & ~(Qt::KeypadModifier | Qt::ShiftModifier)) != Qt::NoModifier)
        return QWidget::eventFilter(watched, event);

    const std::vector<std::string>& files = model_->wavFiles();
    const auto selected = std::find(files.begin(), files.end(), model_->selectedFile().value_or(std::string()));
    const std::size_t current = static_cast<std::size_t>(selected - files.begin());
    switch (key->key()) {
    case Qt::Key_Space: model_->toggleSourcePlayback(); return true;
    case Qt::Key_Up:
        selectSource(selected == files.end() ? 0 : current == 0 ? 0 : current - 1);
        return true;
    case Qt::Key_Down: selectSource(selected == files.end() ? 0 : current + 1); return true;
    case Qt::Key_Home: selectSource(0); return true;
    case Qt::Key_End:
        if (!files.empty())
            selectSource(files.size() - 1);
        return true;
    case Qt::Key_PageUp:
    case Qt::Key_PageDown: {
        if (files.empty())
            return true;
        const auto page = static_cast<std::size_t>(sourceList_->rowsPerPage());
        const std::size_t from = selected == files.end() ? 0 : current;
        selectSource(key->key() == Qt::Key_PageUp ? from - std::min(from, page)
                                                  : std::min(from + page, files.size() - 1));
        return true;
    }
    default: break;
    }
    const QString typed = key->text();
    if (typed.size() != 1 || !typed[0].isLetterOrNumber())
        return QWidget::eventFilter(watched, event);
    const auto match = std::find_if(files.begin(), files.end(), [&typed](const std::string& path) {
        return QString::fromStdString(model::fileName(path)).startsWith(typed, Qt::CaseInsensitive);
    });
    if (match != files.end())
        selectSource(static_cast<std::size_t>(match - files.begin()));
    return true;
}

void ContentView::importChosenFiles() {
    const std::vector<std::string> files = chooseAudioFiles_(importFolder_);
    if (files.empty())
        return;
    importFolder_ = model::pathText(model::pathFromText(files.front()).parent_path());
    model_->importFiles(files);
}

// Redraws ---------------------------------------------------------------------

void ContentView::redraw(const model::AppModel::Change& change) {
    const model::AppModel& m = *model_;
    const Field field = change.field;
    switch (field) {
    case Field::sourceDir: syncText(sourceField_, m.sourceDir()); break;
    case Field::outputDir: syncText(outputField_, m.outputDir()); break;
    case Field::wavFiles:
    case Field::mashupSourcePaths:
    case Field::sourceFacts: sourceList_->redraw(change); break;
    case Field::tempo:
        sourceList_->redraw(change);
        redrawSourceTempo();
        break;
    case Field::settings: redrawSettings(); break;
    case Field::selectedFile:
        redrawSourceTempo();
        sourceList_->redraw(change);
        redrawGenerateButton();
        break;
    case Field::mashupMode: {
        {
            const QSignalBlocker blocker(mashupBox_);
            mashupBox_->setChecked(m.mashupMode());
        }
        modeHint_->setText(m.mashupMode() ? QStringLiteral("Mashup slices are pooled from checked source files.")
                                          : QStringLiteral("Single-source mode uses only the selected source file."));
        sourceList_->redraw(change);
        break;
    }
    case Field::masterVolume: syncSlider(masterSlider_, masterValue_, m.masterVolume()); break;
    case Field::status: {
        QString text = QString::fromStdString(m.status());
        text.replace(QLatin1Char('\n'), QLatin1Char(' '));
        statusLine_->setText(text);
        statusLine_->setToolTip(text);
        break;
    }
    case Field::isGenerating:
        redrawGenerateButton();
        redrawHistory();
        redrawPlayingTarget(); // Escape cancels a run, playing or not
        if (m.isGenerating())
            progressPoll_->start();
        else
            progressPoll_->stop();
        progressBar_->setVisible(m.isGenerating());
        break;
    case Field::generationProgress: redrawGenerationProgress(); break;
    case Field::sourceWaveform: sourceWaveform_->setWaveform(std::span<const double>(m.sourceWaveform())); break;
    case Field::sourceWavData: break;
    case Field::lastRun:
        redrawLastRun();
        redrawHistory();
        break;
    case Field::generatedLoops: {
        const QWidget* focus = QApplication::focusWidget();
        const bool focusInList = focus != nullptr && loopList_->isAncestorOf(focus);
        loopList_->setLoops(m.generatedLoops(), m.playingTarget(), m.playbackProgress());
        // A finished run takes the focus to its first variation; an emptied
        // list hands it to the source list rather than to whatever control
        // comes next.
        if (change.runFinished && !m.generatedLoops().empty())
            loopList_->focusFirstRow();
        else if (focusInList && m.generatedLoops().empty())
            sourceList_->setFocus(Qt::OtherFocusReason);
        redrawSelectionButtons();
        break;
    }
    case Field::runHistory: redrawHistory(); break;
    case Field::warning:
        warningLabel_->setText(QString::fromStdString(m.warning()));
        messageBar_->setVisible(!m.warning().empty());
        break;
    case Field::playingTarget: redrawPlayingTarget(); break;
    case Field::playbackProgress: redrawPlaybackProgress(); break;
    }
}

void ContentView::redrawSettings() {
    const model::RunSettings& s = model_->settings();
    syncSpinBox(slicesBox_, s.plan.sliceCount);
    syncSpinBox(versionsBox_, s.plan.variationCount);
    {
        const auto found = std::find(chop::allChopModels.begin(), chop::allChopModels.end(), s.plan.chopModel);
        const QSignalBlocker blocker(chopModelBox_);
        chopModelBox_->setCurrentIndex(static_cast<int>(found - chop::allChopModels.begin()));
        redrawGlitchRow();
    }
    syncText(seedField_, s.seedText);
    syncSlider(glitchSlider_, glitchValue_, s.plan.glitchAmount);
    {
        const QSignalBlocker boxBlocker(joinFadeBox_);
        const QSignalBlocker msBlocker(joinFadeMsBox_);
        joinFadeBox_->setChecked(s.plan.joinFadeMs > 0);
        if (s.plan.joinFadeMs > 0)
            joinFadeMsBox_->setValue(static_cast<int>(s.plan.joinFadeMs));
        joinFadeMsBox_->setEnabled(s.plan.joinFadeMs > 0);
    }
    const auto check = [](QAbstractButton* box, bool on) {
        const QSignalBlocker blocker(box);
        box->setChecked(on);
    };
    const auto choose = [](QComboBox* box, int index) {
        const QSignalBlocker blocker(box);
        box->setCurrentIndex(index);
    };
    choose(fitBox_, static_cast<int>(s.plan.fit));
    check(matchFormatsBox_, s.matchFormats);
    check(matchTempoBox_, s.matchTempo);
    check(manifestBox_, s.exportOptions.manifest);
    check(tagsBox_, s.exportOptions.tags);
    check(kitBox_, s.exportOptions.kit);
    choose(keepExistingBox_, s.exportOptions.keepExisting ? 1 : 0);
}

void ContentView::redrawSourceTempo() {
    const model::AppModel& m = *model_;
    const auto tempo = m.selectedFile() ? m.tempoFor(*m.selectedFile()) : std::nullopt;
    sourceTempo_->setText(tempo ? QString::fromStdString(chop::tempoText(*tempo)) : QString());
    const auto corrected = m.selectedFile() ? m.tempoOverrides().find(*m.selectedFile()) : m.tempoOverrides().end();
    const QString typed = corrected == m.tempoOverrides().end() ? QString() : QString::number(corrected->second);
    if (!sourceTempoField_->hasFocus() || sourceTempoField_->text() != typed)
        sourceTempoField_->setText(typed);
    sourceTempoField_->setEnabled(m.selectedFile().has_value());
    const auto meter = m.selectedFile() ? m.meterOverrides().find(*m.selectedFile()) : m.meterOverrides().end();
    const QSignalBlocker blocker(sourceMeterBox_);
    sourceMeterBox_->setCurrentIndex(meter == m.meterOverrides().end() ? 0 : static_cast<int>(meter->second) - 2);
    sourceMeterBox_->setEnabled(m.selectedFile().has_value());
}

void ContentView::redrawPlayingTarget() {
    const model::AppModel& m = *model_;
    const bool sourcePlaying = m.playingTarget() == PlaybackTarget::source();
    sourceWaveform_->setPlaybackIcon(sourcePlaying ? PlaybackIcon::stop : PlaybackIcon::play, 32);
    sourceWaveform_->setPlayheadProgress(sourcePlaying ? m.playbackProgress() : std::nullopt);
    sourceCaption_->setText(sourcePlaying ? QStringLiteral("Source: Looping (click waveform to stop)")
                                          : QStringLiteral("Source: Stopped (click waveform to play)"));
    setTextColor(sourceCaption_, sourcePlaying ? look::green() : look::secondary(palette()));

    loopList_->setPlayback(m.playingTarget(), m.playbackProgress());
    commands_.stopPlayback->setEnabled(m.playingTarget().has_value() || m.isGenerating());
}

void ContentView::redrawPlaybackProgress() {
    // Ticks arrive 33 times a second: touch only the one waveform that shows
    // a playhead.
    const model::AppModel& m = *model_;
    if (!m.playingTarget())
        return;
    if (m.playingTarget()->kind == PlaybackTarget::Kind::source) {
        sourceWaveform_->setPlayheadProgress(m.playbackProgress());
        return;
    }
    loopList_->setPlayingProgress(m.playingTarget()->id, m.playbackProgress());
}

void ContentView::redrawGlitchRow() {
    const bool wanted = chop::recipe(model_->settings().plan.chopModel).glitchEffects;
    const bool present = layout_->indexOf(glitchRow_) >= 0;
    if (wanted && !present) {
        layout_->insertWidget(layout_->indexOf(masterRow_), glitchRow_);
        glitchRow_->show();
    } else if (!wanted && present) {
        layout_->removeWidget(glitchRow_);
        glitchRow_->hide();
    }
}

void ContentView::redrawGenerateButton() {
    const bool busy = model_->isGenerating();
    generateButton_->setText(busy ? QStringLiteral("Cancel") : QStringLiteral("Generate"));
    generateButton_->setEnabled(busy || model_->selectedFile().has_value());
    commands_.generate->setEnabled(!busy && model_->selectedFile().has_value());
}

void ContentView::redrawGenerationProgress() {
    const model::AppModel::GenerationProgress& progress = model_->generationProgress();
    progressBar_->setRange(0, static_cast<int>(progress.total));
    progressBar_->setValue(static_cast<int>(progress.done));
}

void ContentView::redrawLastRun() {
    const std::optional<model::RunRecord>& run = model_->lastRun();
    seedOfRunLabel_->setText(run ? QStringLiteral("Seed of this run: %1").arg(run->seed) : QString());
    useSeedButton_->setVisible(run.has_value());
    const std::optional<std::string> mismatch = run ? model::formatMismatchWarning(*run) : std::nullopt;
    formatMismatchLabel_->setText(mismatch ? QStringLiteral("Formats differ") : QString());
    formatMismatchLabel_->setToolTip(
        mismatch ? QString::fromStdString(*mismatch) + QStringLiteral(" Tick Match formats to convert them.")
                 : QString());
}

void ContentView::redrawHistory() {
    const model::RunHistory& history = model_->runHistory();
    const bool idle = !model_->isGenerating();
    const bool canGoBack = idle && history.backTarget().has_value();
    const bool canGoForward = idle && history.forwardTarget().has_value();
    backButton_->setEnabled(canGoBack);
    forwardButton_->setEnabled(canGoForward);
    commands_.back->setEnabled(canGoBack);
    commands_.forward->setEnabled(canGoForward);
}

void ContentView::redrawSelectionButtons() {
    const auto& loops = model_->generatedLoops();
    selectAllButton_->setEnabled(!loops.empty());
    selectNoneButton_->setEnabled(!loops.empty());
    exportButton_->setEnabled(
        std::any_of(loops.begin(), loops.end(), [](const model::GeneratedLoop& loop) { return loop.isSelected; }));
    commands_.exportSelected->setEnabled(exportButton_->isEnabled());
}

} // namespace marquetry::ui
