#pragma once

#include "model/AppModel.hpp"

#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QAction;
class QCheckBox;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QSlider;
class QSpinBox;
class QSplitter;
class QTimer;
class QToolButton;
class QVBoxLayout;

class QDrag;

namespace marquetry::ui {

class SourceList;
class VariationListPanel;
class WaveformView;

/// The main window's content: every control of the working surface, drawn
/// from the model it owns and redrawn from the model's change notices only.
/// Main thread only.
class ContentView final : public QWidget {
    Q_OBJECT
public:
    /// Asks the user for audio files to import, in a dialog that starts in
    /// `folder`; returns their paths, none when the user cancels.
    using AudioFileChooser = std::function<std::vector<std::string>(const std::string& folder)>;

    /// Creates the one AppModel of this window over `platform`, whose
    /// services must outlive the view, starting on `initialSelection` when
    /// its folder lists it; Import... asks `chooseAudioFiles`.
    ContentView(model::Platform platform, AudioFileChooser chooseAudioFiles,
                std::optional<std::string> initialSelection = std::nullopt, QWidget* parent = nullptr);
    ~ContentView() override;

    /// The window's model, alive as long as the view; for tests and
    /// screenshots that drive it directly.
    model::AppModel& model() { return *model_; }

    /// The window's commands, with their keyboard shortcuts, for the menus.
    /// They are actions of this view too, so the shortcuts work wherever the
    /// view is shown, menus or not; each is enabled only when it can act.
    struct Commands {
        QAction* generate = nullptr;       ///< Ctrl+Return; while a run goes, the Generate button cancels it
        QAction* exportSelected = nullptr; ///< Ctrl+E
        QAction* back = nullptr;           ///< Ctrl+Z: the run before
        QAction* forward = nullptr;        ///< Ctrl+Shift+Z: the run after
        QAction* stopPlayback = nullptr;   ///< Escape; while a run goes, cancels it first
    };
    const Commands& commands() const { return commands_; }

    /// Carries out a drag out of the window once its file is written; by
    /// default QDrag::exec with a copy. Tests replace it, since a real drag
    /// waits for a drop.
    using DragRunner = std::function<void(QDrag&)>;
    void setDragRunner(DragRunner runner) { dragRunner_ = std::move(runner); }

    /// The width of the source list, which its splitter handle changes; a
    /// width set is kept within what the window leaves it.
    int sourceListWidth() const;
    void setSourceListWidth(int width);

    /// The folder drag files are written to, under the user's cache folder;
    /// files older than a minute are removed from it when a view is made.
    static QString dragFolder();

protected:
    /// The source list and the source waveform's keys: Up and Down select
    /// the file above or below, Home and End the first or last, Page Up and
    /// Page Down the file a page of rows away, a letter the first file
    /// beginning with it, Space plays or stops the source. (Return in the
    /// list is its own.)
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    // Writes the variation or the source as Export Selected would, into
    // dragFolder(), and drags that file out; a failed write starts no drag.
    void dragOut(const playback::PlaybackTarget& target);
    DragRunner dragRunner_;
    using Field = model::AppModel::Field;

    QWidget* buildHeader();
    QWidget* buildSourceRow();
    QWidget* buildGenerateRow();
    QWidget* buildGlitchRow();
    QWidget* buildMasterRow();
    QWidget* buildSoundRow();
    QWidget* buildPanels();
    QWidget* buildSelectionRow();
    QWidget* buildMessageBar();
    QWidget* buildOutputRow();

    /// Brings the controls that show `field` up to date with the model.
    void redraw(const model::AppModel::Change& change);
    void redrawSettings();
    void redrawSourceTempo();
    void redrawPlayingTarget();
    void redrawPlaybackProgress();
    void redrawGlitchRow();
    void redrawGenerateButton();
    void redrawGenerationProgress();
    void redrawSelectionButtons();
    void redrawLastRun();
    void redrawHistory();

    void buildCommands();
    void stopPlaybackCommand();
    void selectSource(std::size_t index);

    void importChosenFiles();

    AudioFileChooser chooseAudioFiles_;
    // Where the import dialog opens: the home folder, then the folder of
    // the last files imported in this session.
    std::string importFolder_;
    std::unique_ptr<model::AppModel> model_;

    QVBoxLayout* layout_ = nullptr;
    QLineEdit* sourceField_ = nullptr;
    QPushButton* generateButton_ = nullptr;
    QToolButton* backButton_ = nullptr;
    QToolButton* forwardButton_ = nullptr;
    QSpinBox* slicesBox_ = nullptr;
    QSpinBox* versionsBox_ = nullptr;
    QComboBox* chopModelBox_ = nullptr;
    QCheckBox* mashupBox_ = nullptr;
    QLineEdit* seedField_ = nullptr;
    QLabel* seedOfRunLabel_ = nullptr;
    QToolButton* useSeedButton_ = nullptr;
    QWidget* generateRow_ = nullptr;
    QWidget* glitchRow_ = nullptr;
    QSlider* glitchSlider_ = nullptr;
    QLabel* glitchValue_ = nullptr;
    QWidget* masterRow_ = nullptr;
    QSlider* masterSlider_ = nullptr;
    QLabel* masterValue_ = nullptr;
    QLabel* modeHint_ = nullptr;
    SourceList* sourceList_ = nullptr;
    WaveformView* sourceWaveform_ = nullptr;
    QLabel* sourceCaption_ = nullptr;
    QLabel* sourceTempo_ = nullptr;
    QLineEdit* sourceTempoField_ = nullptr;
    QComboBox* sourceMeterBox_ = nullptr;
    VariationListPanel* loopList_ = nullptr;
    QPushButton* selectAllButton_ = nullptr;
    QPushButton* selectNoneButton_ = nullptr;
    QPushButton* exportButton_ = nullptr;
    QCheckBox* manifestBox_ = nullptr;
    QCheckBox* tagsBox_ = nullptr;
    QCheckBox* kitBox_ = nullptr;
    QComboBox* keepExistingBox_ = nullptr;
    QCheckBox* joinFadeBox_ = nullptr;
    QSpinBox* joinFadeMsBox_ = nullptr;
    QComboBox* fitBox_ = nullptr;
    QCheckBox* matchFormatsBox_ = nullptr;
    QCheckBox* matchTempoBox_ = nullptr;
    QLabel* formatMismatchLabel_ = nullptr;
    QLabel* statusLine_ = nullptr;
    QProgressBar* progressBar_ = nullptr;
    // Reads the run's progress from the model a few times a second while
    // a run goes.
    QTimer* progressPoll_ = nullptr;
    QFrame* messageBar_ = nullptr;
    QLabel* warningLabel_ = nullptr;
    QLineEdit* outputField_ = nullptr;
    QSplitter* panels_ = nullptr;
    Commands commands_;
};

} // namespace marquetry::ui
