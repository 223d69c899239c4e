#pragma once

#include "model/AppModel.hpp"

#include <QListView>

#include <cstddef>

class QLabel;

namespace marquetry::ui {

class SourceListModel;

/// The files of the Source folder, a row each: a radio-style mark and the
/// file name, which selects the file, the loop's tempo beside it, its length
/// and format (or why the reader refuses it) in small print under the name,
/// and, in Mashup Mode only, a checkbox for the mashup pool. The rows are
/// painted over the model rather than built as widgets, so a folder of
/// thousands of files shows at once, and what the background facts pass
/// finds repaints only the rows it is about. A hint takes the place of an
/// empty list. Main thread only.
///
/// The list has no selection of its own: the model's selected file is the
/// one marked, and the view's current row follows it, for assistive
/// technology. Return and Enter tick or untick the selected file for the
/// pool in Mashup Mode; the other keys of the list are its owner's (see
/// ContentView::eventFilter).
class SourceList final : public QListView {
    Q_OBJECT
public:
    /// What a row holds beyond its file name (Qt::DisplayRole), its small
    /// print (Qt::AccessibleDescriptionRole: the facts, or the refusal after
    /// a warning sign), the tooltip of both (Qt::ToolTipRole: the file's
    /// path, or the reader's own words for a file it refuses) and, in Mashup
    /// Mode only, its pool checkbox (Qt::CheckStateRole, which can be set).
    enum Role {
        pathRole = Qt::UserRole, ///< the file's path
        tempoRole,               ///< "126.0 BPM · 1 bar", empty while unknown
        selectedRole,            ///< true for the selected file
        refusedRole,             ///< true for a file the reader refuses
    };

    /// The parts of a row that answer the mouse.
    enum class Part { none, name, caption, pool };

    /// A list of `model`'s source files, which it selects and pools through
    /// `model`; the model must outlive the list. Shows nothing until the
    /// first redraw.
    explicit SourceList(model::AppModel& model, QWidget* parent = nullptr);
    ~SourceList() override;

    /// Brings the rows up to date after the model's `change`: a new list of
    /// files replaces them, facts, tempo, selection and pool changes repaint
    /// the rows concerned; other fields change nothing.
    void redraw(const model::AppModel::Change& change);

    /// Scrolls until the row of the listed file at `row` shows, with some of
    /// its neighbours, as a move from the keyboard needs.
    void showRow(std::size_t row);

    /// How many whole rows the list shows at once (at least 1): what Page Up
    /// and Page Down move by.
    int rowsPerPage() const;

    /// Where `part` of the row at `row` lies in the viewport; empty when the
    /// row has no such part (the pool outside Mashup Mode).
    QRect partRect(int row, Part part) const;

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    bool viewportEvent(QEvent* event) override;
    void updateGeometries() override;

private:
    friend class SourceRowDelegate;
    struct Hit {
        int row = -1;
        Part part = Part::none;
        bool operator==(const Hit&) const = default;
    };
    Hit hitAt(const QPoint& point) const;
    void setHovered(Hit hit);
    void act(Hit hit);
    void updateRow(int row);

    model::AppModel& model_;
    SourceListModel* rows_ = nullptr;
    QLabel* emptyHint_ = nullptr;
    Hit hovered_;
    // The part a left press went down on, until its release; the part acts
    // only when the release comes over it too, as a button's click does.
    Hit pressed_;
};

} // namespace marquetry::ui
