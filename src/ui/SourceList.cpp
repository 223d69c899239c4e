#include "ui/SourceList.hpp"

#include "chop/TempoEstimate.hpp"
#include "model/FileSystem.hpp"
#include "model/SourceFacts.hpp"
#include "ui/Controls.hpp"
#include "ui/WaveformView.hpp"

#include <QAbstractItemDelegate>
#include <QAbstractListModel>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QStyleOptionButton>
#include <QToolTip>

#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace marquetry::ui {
namespace {

using Field = model::AppModel::Field;
using Part = SourceList::Part;

// A row's measures are those its widgets had when each row was a layout of
// a button, a label and a checkbox over a caption, so the list looks as it
// did.
constexpr int rowPadding = 2;  // above and below the two lines
constexpr int partSpacing = 8; // between the parts of the name line
constexpr int markSpacing = 8; // between the mark and the name
constexpr int namePadding = 4; // around the mark and the name, inside their hover
// The empty space the scroll area of those rows kept around them.
constexpr QMargins listMargins(6, 4, 6, 4);
// A move from the keyboard shows this much of the rows around the selection.
constexpr int showRowMargin = 50;
// A scroll area's step, which a wheel notch scrolls three times.
constexpr int scrollStep = 20;
// A refused file's note: a warning, not an error the user caused.
const QColor refusalColor(196, 64, 48);

struct RowFonts {
    QFont name;
    QFont caption;
    QFontMetrics nameMetrics;
    QFontMetrics captionMetrics;
    explicit RowFonts(const QWidget& list)
        : name(list.font()), caption(look::captionFont(name)), nameMetrics(name), captionMetrics(caption) {}

    int markSize() const { return nameMetrics.height(); }
    int nameHeight() const { return nameMetrics.height() + 8; }
    // Where the name's text and the caption start, from the row's left.
    int textLeft() const { return namePadding + markSize() + markSpacing; }
    // A label's size for one line of `text` in the caption font.
    QSize labelSize(const QString& text) const {
        constexpr int room = 2000;
        return captionMetrics.boundingRect(0, 0, room, room, Qt::AlignLeft, text).size();
    }
};

// A checkbox without a label, as large as QCheckBox would make it.
QSize poolSize(const QWidget& list) {
    QStyleOptionButton option;
    option.initFrom(&list);
    return list.style()->sizeFromContents(QStyle::CT_CheckBox, &option, QSize(0, 0), &list);
}

int nameLineHeight(const QWidget& list, const RowFonts& fonts, bool mashupMode) {
    const int line = std::max(fonts.nameHeight(), fonts.captionMetrics.height());
    return mashupMode ? std::max(line, poolSize(list).height()) : line;
}

int rowHeight(const QWidget& list, bool mashupMode) {
    const RowFonts fonts(list);
    return rowPadding + nameLineHeight(list, fonts, mashupMode) + fonts.captionMetrics.height() + rowPadding;
}

// Where the parts of the row at `item` lie: the name line as a box layout
// placed it (the name shrinking first when room runs out, the pool at the
// right), the caption under it across the row. Every row is as wide as the
// list shows.
struct RowGeometry {
    QRect name;
    QRect tempo;
    QRect pool; // empty outside Mashup Mode
    QRect caption;
};

RowGeometry rowGeometry(const QAbstractItemView& list, const QRect& item, const QModelIndex& index, bool mashupMode) {
    const QRect row(0, item.top(), list.viewport()->width(), item.height());
    const RowFonts fonts(list);
    const QString name = index.data(Qt::DisplayRole).toString();
    const QSize tempo = fonts.labelSize(index.data(SourceList::tempoRole).toString());
    const QSize pool = mashupMode ? poolSize(list) : QSize();
    const int line = nameLineHeight(list, fonts, mashupMode);
    const int lineTop = row.top() + rowPadding;
    const auto centred = [lineTop, line](int height) { return lineTop + (line - height) / 2; };

    const int nameHint = fonts.textLeft() + fonts.nameMetrics.horizontalAdvance(name) + 1 + namePadding;
    const int nameMinimum =
        fonts.textLeft() + fonts.nameMetrics.horizontalAdvance(QStringLiteral("M\u2026")) + namePadding;
    const int room = row.width() - partSpacing - tempo.width() - (pool.isValid() ? partSpacing + pool.width() : 0);
    const int nameWidth = std::max(nameMinimum, std::min(nameHint, room));

    RowGeometry geometry;
    geometry.name = QRect(row.left(), centred(fonts.nameHeight()), nameWidth, fonts.nameHeight());
    geometry.tempo = QRect(QPoint(row.left() + nameWidth + partSpacing, centred(tempo.height())), tempo);
    if (pool.isValid())
        geometry.pool = QRect(QPoint(row.right() + 1 - pool.width(), centred(pool.height())), pool);
    geometry.caption = QRect(row.left(), lineTop + line, row.width(), fonts.captionMetrics.height());
    return geometry;
}

} // namespace

// The list's rows over the model's source files. It keeps its own copy of
// the file list, so rows change only when it is told, and the row of every
// path, so the facts of a few files repaint only their rows.
class SourceListModel final : public QAbstractListModel {
public:
    SourceListModel(model::AppModel& model, QObject* parent) : QAbstractListModel(parent), model_(model) {}

    int rowCount(const QModelIndex& parent = QModelIndex()) const override {
        return parent.isValid() ? 0 : static_cast<int>(files_.size());
    }

    Qt::ItemFlags flags(const QModelIndex& index) const override {
        if (!index.isValid())
            return Qt::NoItemFlags;
        const std::string& path = files_[static_cast<std::size_t>(index.row())];
        const bool poolable = model_.mashupMode() && !model_.factsFor(path).refusal;
        return Qt::ItemIsEnabled | Qt::ItemNeverHasChildren | (poolable ? Qt::ItemIsUserCheckable : Qt::NoItemFlags);
    }

    QVariant data(const QModelIndex& index, int role) const override {
        if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
            return {};
        const std::string& path = files_[static_cast<std::size_t>(index.row())];
        switch (role) {
        case Qt::DisplayRole: return QString::fromStdString(model::fileName(path));
        case Qt::AccessibleDescriptionRole: {
            const model::SourceFacts facts = model_.factsFor(path);
            return facts.refusal ? QStringLiteral("\u26a0 ") + QString::fromStdString(*facts.refusal)
                                 : QString::fromStdString(model::factsText(facts));
        }
        case Qt::ToolTipRole: {
            // The reader's own words where the pointer rests.
            const model::SourceFacts facts = model_.factsFor(path);
            return QString::fromStdString(facts.refusal.value_or(path));
        }
        case Qt::CheckStateRole:
            if (!model_.mashupMode())
                return {};
            return model_.mashupSourcePaths().contains(path) ? Qt::Checked : Qt::Unchecked;
        case SourceList::pathRole: return QString::fromStdString(path);
        case SourceList::tempoRole: {
            const auto tempo = model_.tempoFor(path);
            return tempo ? QString::fromStdString(chop::tempoText(*tempo)) : QString();
        }
        case SourceList::selectedRole: return model_.selectedFile() == path;
        case SourceList::refusedRole: return model_.factsFor(path).refusal.has_value();
        default: return {};
        }
    }

    /// Ticks or unticks the file for the mashup pool, in Mashup Mode only.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override {
        if (role != Qt::CheckStateRole || !model_.mashupMode() ||
            !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
            return false;
        // A copy: the model's notice reaches this list before the call returns.
        const std::string path = files_[static_cast<std::size_t>(index.row())];
        model_.toggleMashupMembership(path, value.toInt() == Qt::Checked);
        return true;
    }

    /// The row of the listed file at `path`, -1 when it is not listed.
    int rowOf(const std::string& path) const {
        const auto found = rowOfPath_.find(path);
        return found == rowOfPath_.end() ? -1 : found->second;
    }

    /// Follows the model's write of `field`; true when the rows were
    /// replaced.
    bool redraw(const model::AppModel::Change& change) {
        switch (change.field) {
        case Field::wavFiles: {
            // A rescan that lists the same files keeps the rows, and with
            // them the scroll position.
            if (files_ == model_.wavFiles())
                return false;
            beginResetModel();
            files_ = model_.wavFiles();
            rowOfPath_.clear();
            rowOfPath_.reserve(files_.size());
            for (std::size_t row = 0; row < files_.size(); ++row)
                rowOfPath_.emplace(files_[row], static_cast<int>(row));
            shownSelection_ = model_.selectedFile();
            endResetModel();
            return true;
        }
        case Field::sourceFacts:
        case Field::tempo: pathsChanged(change.paths); break;
        case Field::selectedFile: {
            std::vector<std::string> paths;
            if (shownSelection_)
                paths.push_back(*shownSelection_);
            shownSelection_ = model_.selectedFile();
            if (shownSelection_)
                paths.push_back(*shownSelection_);
            pathsChanged(paths);
            break;
        }
        case Field::mashupMode:
        case Field::mashupSourcePaths:
            // The view repaints what shows, however many rows are named.
            if (!files_.empty())
                emit dataChanged(index(0), index(rowCount() - 1), {Qt::CheckStateRole});
            break;
        default: break;
        }
        return false;
    }

private:
    // One notice per run of neighbouring rows: a facts pass reads the files
    // in list order, so a batch of its findings is usually one run.
    void pathsChanged(const std::vector<std::string>& paths) {
        std::vector<int> rows;
        rows.reserve(paths.size());
        for (const std::string& path : paths)
            if (const int row = rowOf(path); row >= 0)
                rows.push_back(row);
        std::sort(rows.begin(), rows.end());
        for (std::size_t first = 0; first < rows.size();) {
            std::size_t last = first;
            while (last + 1 < rows.size() && rows[last + 1] <= rows[last] + 1)
                ++last;
            emit dataChanged(index(rows[first]), index(rows[last]));
            first = last + 1;
        }
    }

    model::AppModel& model_;
    std::vector<std::string> files_;
    std::unordered_map<std::string, int> rowOfPath_;
    // The selection the rows last showed, whose mark a new one clears.
    std::optional<std::string> shownSelection_;
};

// Paints a row as its widgets drew themselves: the name as a borderless
// button (a rounded highlight under the pointer), the tempo as a label, the
// caption elided to the row, the pool as the style's checkbox.
class SourceRowDelegate final : public QAbstractItemDelegate {
public:
    explicit SourceRowDelegate(SourceList& list) : QAbstractItemDelegate(&list), list_(list) {}

    QSize sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const override {
        // As narrow as can be, so the view makes every row as wide as itself.
        return {1, rowHeight(list_, list_.model_.mashupMode())};
    }

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
        const bool mashupMode = list_.model_.mashupMode();
        const RowGeometry at = rowGeometry(list_, option.rect, index, mashupMode);
        const RowFonts fonts(list_);
        const QPalette& palette = option.palette;
        const auto hovered = [&](Part part) { return list_.hovered_ == SourceList::Hit{index.row(), part}; };

        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        if (hovered(Part::name)) {
            QColor hover = look::gray();
            hover.setAlphaF(0.14f);
            painter->setPen(Qt::NoPen);
            painter->setBrush(hover);
            painter->drawRoundedRect(QRectF(at.name), 5, 5);
        }

        const double size = fonts.markSize();
        const QRectF mark(at.name.left() + namePadding, at.name.top() + (at.name.height() - size) / 2.0, size, size);
        if (index.data(SourceList::selectedRole).toBool()) {
            const QColor accent = look::accent(palette);
            painter->setPen(QPen(accent, 1.5));
            painter->setBrush(Qt::NoBrush);
            painter->drawEllipse(mark.adjusted(0.75, 0.75, -0.75, -0.75));
            painter->setPen(Qt::NoPen);
            painter->setBrush(accent);
            const double inset = size * 0.26;
            painter->drawEllipse(mark.adjusted(inset, inset, -inset, -inset));
        } else {
            painter->setPen(QPen(look::secondary(palette), 1.5));
            painter->setBrush(Qt::NoBrush);
            painter->drawEllipse(mark.adjusted(0.75, 0.75, -0.75, -0.75));
        }

        const QRect nameText(at.name.left() + fonts.textLeft(), at.name.top(),
                             at.name.width() - fonts.textLeft() - namePadding, at.name.height());
        painter->setFont(fonts.name);
        painter->setPen(palette.color(QPalette::WindowText));
        painter->drawText(nameText, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                          fonts.nameMetrics.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight,
                                                       nameText.width()));

        painter->setFont(fonts.caption);
        painter->setPen(palette.color(QPalette::PlaceholderText));
        painter->drawText(at.tempo, Qt::AlignVCenter | Qt::AlignLeft, index.data(SourceList::tempoRole).toString());

        const QRect captionText = at.caption.adjusted(fonts.textLeft(), 0, 0, 0);
        painter->setPen(index.data(SourceList::refusedRole).toBool() ? refusalColor : look::secondary(palette));
        painter->drawText(captionText, Qt::AlignVCenter | Qt::AlignLeft | Qt::TextSingleLine,
                          fonts.captionMetrics.elidedText(index.data(Qt::AccessibleDescriptionRole).toString(),
                                                          Qt::ElideRight, captionText.width()));

        if (mashupMode) {
            QStyleOptionButton box;
            box.initFrom(&list_);
            box.rect = at.pool;
            box.state &= ~QStyle::State_HasFocus;
            box.state |= index.data(Qt::CheckStateRole).toInt() == Qt::Checked ? QStyle::State_On : QStyle::State_Off;
            // A loop the reader refuses cannot join the pool.
            if (index.data(SourceList::refusedRole).toBool())
                box.state &= ~QStyle::State_Enabled;
            if (hovered(Part::pool))
                box.state |= QStyle::State_MouseOver;
            // Held down while the press that went down on it stays over it.
            if (hovered(Part::pool) && list_.pressed_ == list_.hovered_)
                box.state |= QStyle::State_Sunken;
            list_.style()->drawControl(QStyle::CE_CheckBox, &box, painter, &list_);
        }
        painter->restore();
    }

private:
    const SourceList& list_;
};

SourceList::SourceList(model::AppModel& model, QWidget* parent)
    : QListView(parent), model_(model), rows_(new SourceListModel(model, this)) {
    setModel(rows_);
    setItemDelegate(new SourceRowDelegate(*this));
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformItemSizes(true);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    // Only a move from the keyboard scrolls (showRow); a selection made
    // elsewhere leaves the list where the user put it.
    setAutoScroll(false);
    setFocusPolicy(Qt::StrongFocus);
    setViewportMargins(listMargins);
    viewport()->setBackgroundRole(QPalette::Window);
    viewport()->setMouseTracking(true);

    emptyHint_ = new QLabel(
        QStringLiteral("No loops here yet. Choose\u2026 a folder, or drop audio files here to import them."),
        viewport());
    emptyHint_->setObjectName(QStringLiteral("emptySourceHint"));
    emptyHint_->setWordWrap(true);
    emptyHint_->setContentsMargins(4, 8, 4, 8);
    setTextColor(emptyHint_, look::secondary(palette()));
}

SourceList::~SourceList() = default;

void SourceList::redraw(const model::AppModel::Change& change) {
    if (rows_->redraw(change)) {
        hovered_ = pressed_ = {};
        viewport()->unsetCursor();
    }
    switch (change.field) {
    case Field::wavFiles:
        emptyHint_->setVisible(rows_->rowCount() == 0);
        [[fallthrough]];
    case Field::selectedFile: {
        // Assistive technology follows the current row; nothing draws it.
        const int row = model_.selectedFile() ? rows_->rowOf(*model_.selectedFile()) : -1;
        selectionModel()->setCurrentIndex(rows_->index(row), QItemSelectionModel::NoUpdate);
        break;
    }
    case Field::mashupMode:
        // The pool may be taller than the name.
        scheduleDelayedItemsLayout();
        break;
    default: break;
    }
}

void SourceList::showRow(std::size_t row) {
    const QRect rect = visualRect(rows_->index(static_cast<int>(row)));
    const QRect visible = viewport()->rect();
    if (!rect.isValid() || visible.contains(rect))
        return;
    const QRect wanted = rect.adjusted(0, -showRowMargin, 0, showRowMargin);
    QScrollBar* bar = verticalScrollBar();
    if (wanted.height() > visible.height())
        bar->setValue(bar->value() + wanted.center().y() - visible.height() / 2);
    else if (wanted.bottom() > visible.bottom())
        bar->setValue(bar->value() + wanted.bottom() - visible.bottom());
    else if (wanted.top() < visible.top())
        bar->setValue(bar->value() + wanted.top());
}

int SourceList::rowsPerPage() const {
    return std::max(1, viewport()->height() / std::max(1, rowHeight(*this, model_.mashupMode())));
}

QRect SourceList::partRect(int row, Part part) const {
    const QModelIndex index = rows_->index(row);
    if (!index.isValid())
        return {};
    const RowGeometry at = rowGeometry(*this, visualRect(index), index, model_.mashupMode());
    switch (part) {
    case Part::name: return at.name;
    case Part::caption: return at.caption;
    case Part::pool: return at.pool;
    case Part::none: break;
    }
    return {};
}

SourceList::Hit SourceList::hitAt(const QPoint& point) const {
    const QModelIndex index = indexAt(point);
    if (!index.isValid())
        return {};
    for (const Part part : {Part::name, Part::caption, Part::pool})
        if (partRect(index.row(), part).contains(point))
            return {index.row(), part};
    return {};
}

void SourceList::setHovered(Hit hit) {
    if (hit == hovered_)
        return;
    updateRow(std::exchange(hovered_, hit).row);
    updateRow(hovered_.row);
    if (hit.part == Part::name || hit.part == Part::caption)
        viewport()->setCursor(Qt::PointingHandCursor);
    else
        viewport()->unsetCursor();
}

void SourceList::updateRow(int row) {
    if (row >= 0)
        update(rows_->index(row));
}

void SourceList::act(Hit hit) {
    const QModelIndex index = rows_->index(hit.row);
    if (hit.part == Part::pool) {
        const bool inPool = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
        rows_->setData(index, inPool ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole);
    } else if (hit.part != Part::none) {
        model_.selectFile(index.data(pathRole).toString().toStdString());
    }
}

void SourceList::keyPressEvent(QKeyEvent* event) {
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    const int row = model_.selectedFile() ? rows_->rowOf(*model_.selectedFile()) : -1;
    if (enter && (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier && model_.mashupMode() && row >= 0) {
        act({row, Part::pool});
        return;
    }
    // Not the item view's keys, which move a current row that nothing shows.
    QAbstractScrollArea::keyPressEvent(event);
}

// Not the item view's mouse, which selects rows: each part of a row acts as
// the button it stands for, on a release over the part the press went down on.
void SourceList::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    const Hit hit = hitAt(event->position().toPoint());
    setHovered(hit);
    pressed_ = hit;
    updateRow(hit.row);
}

void SourceList::mouseDoubleClickEvent(QMouseEvent* event) {
    // The second press of a double click is one more press, as on a button.
    mousePressEvent(event);
}

void SourceList::mouseMoveEvent(QMouseEvent* event) {
    setHovered(hitAt(event->position().toPoint()));
}

void SourceList::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        event->ignore();
        return;
    }
    const Hit pressed = std::exchange(pressed_, Hit{});
    updateRow(pressed.row);
    if (pressed.part != Part::none && hitAt(event->position().toPoint()) == pressed)
        act(pressed);
}

bool SourceList::viewportEvent(QEvent* event) {
    switch (event->type()) {
    case QEvent::Leave: setHovered({}); break;
    case QEvent::ToolTip: {
        // On the name and the caption only, as their widgets had it.
        const auto* help = static_cast<QHelpEvent*>(event);
        const Hit hit = hitAt(help->pos());
        if (hit.part == Part::name || hit.part == Part::caption)
            QToolTip::showText(help->globalPos(), rows_->index(hit.row).data(Qt::ToolTipRole).toString(), viewport(),
                               partRect(hit.row, hit.part));
        else
            QToolTip::hideText();
        return true;
    }
    default: break;
    }
    return QListView::viewportEvent(event);
}

void SourceList::updateGeometries() {
    QListView::updateGeometries();
    verticalScrollBar()->setSingleStep(scrollStep);
    if (emptyHint_ != nullptr) // not yet while the view is set up
        emptyHint_->setGeometry(0, 0, viewport()->width(), emptyHint_->heightForWidth(viewport()->width()));
}

} // namespace marquetry::ui
