#include "ui/MarquetryHelpView.hpp"

#include "ui/AppLogo.hpp"

#include <QApplication>
#include <QFontInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPixmap>
#include <QScrollArea>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace marquetry::ui {

namespace {

using Style = HelpBlock::Style;

// The page sizes are those of the desktop's text styles at a 13-point body,
// scaled to the body font this desktop uses, so the hierarchy survives a
// larger or smaller system font.
QFont scaledFont(double points, bool bold) {
    QFont font = QApplication::font();
    const double bodyPixels = std::max(1, QFontInfo(font).pixelSize());
    font.setPixelSize(std::max(1, static_cast<int>(std::lround(points * bodyPixels / 13.0))));
    font.setBold(bold);
    return font;
}

QFont fontFor(Style style) {
    switch (style) {
    case Style::largeTitle: return scaledFont(26, true);
    case Style::title: return scaledFont(22, true);
    case Style::title3: return scaledFont(15, false);
    case Style::headline: return scaledFont(13, true);
    case Style::header:
    case Style::body: break;
    }
    return QApplication::font();
}

void useSecondaryColour(QWidget& widget) {
    QPalette palette = widget.palette();
    QColor colour = palette.color(QPalette::WindowText);
    colour.setAlphaF(0.55f);
    palette.setColor(QPalette::WindowText, colour);
    widget.setPalette(palette);
}

QLabel* textLabel(const HelpBlock& line, QWidget* parent) {
    auto* label = new QLabel(line.text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setFont(fontFor(line.style));
    if (line.secondary)
        useSecondaryColour(*label);
    return label;
}

// A new widget showing `topic`'s page; the caller owns it.
QWidget* topicPage(HelpTopic topic) {
    const HelpPage content = helpPage(topic);
    auto* page = new QWidget;
    auto* column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(content.spacing);
    for (const HelpBlock& line : content.blocks) {
        if (line.extraSpaceAbove > 0)
            column->addSpacing(line.extraSpaceAbove);
        QWidget* widget = line.style == Style::header ? makeWelcomeHeader(appLogoImage(), page)
                                                      : textLabel(line, page);
        column->addWidget(widget);
    }
    return page;
}

} // namespace

QWidget* makeWelcomeHeader(const std::optional<QImage>& logo, QWidget* parent) {
    auto* header = new QWidget(parent);
    auto* row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    auto* mark = new QLabel(header);
    mark->setObjectName(QStringLiteral("welcomeLogo"));
    if (logo && !logo->isNull()) {
        constexpr int logoHeight = 120;
        // Scaled once here at the screen's density rather than on every paint.
        const qreal density = qApp != nullptr ? qApp->devicePixelRatio() : 1.0;
        QPixmap pixmap = QPixmap::fromImage(logo->scaledToHeight(
            static_cast<int>(std::lround(logoHeight * density)), Qt::SmoothTransformation));
        pixmap.setDevicePixelRatio(density);
        mark->setPixmap(pixmap);
    } else {
        mark->setText(QStringLiteral("Marquetry"));
        mark->setTextFormat(Qt::PlainText);
        mark->setFont(scaledFont(66, true));
    }
    row->addStretch(1);
    row->addWidget(mark);
    row->addStretch(1);
    return header;
}

MarquetryHelpView::MarquetryHelpView(QWidget* parent)
    : QWidget(parent) {
    setMinimumSize(860, 580);

    sidebar_ = new QListWidget(this);
    sidebar_->setFixedWidth(260);
    sidebar_->setFrameShape(QFrame::NoFrame);
    sidebar_->setSelectionMode(QAbstractItemView::SingleSelection);
    sidebar_->setStyleSheet(QStringLiteral("QListWidget { padding: 10px 8px; outline: 0; }"
                                           "QListWidget::item { padding: 0px 8px; border-radius: 5px; }"
                                           "QListWidget::item:selected { background: palette(highlight);"
                                           " color: palette(highlighted-text); }"));
    {
        // A sidebar sits on the window's own colour rather than a text field's,
        // and its selection stays readable while another window is active.
        QPalette palette = sidebar_->palette();
        palette.setColor(QPalette::Base, palette.color(QPalette::Window));
        for (const QPalette::ColorRole role : {QPalette::Highlight, QPalette::HighlightedText})
            palette.setColor(QPalette::Inactive, role, palette.color(QPalette::Active, role));
        sidebar_->setPalette(palette);
    }
    for (HelpTopic topic : allHelpTopics()) {
        auto* item = new QListWidgetItem(helpTopicTitle(topic), sidebar_);
        item->setSizeHint(QSize(0, 28));
    }

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Plain);
    divider->setForegroundRole(QPalette::Mid);
    divider->setFixedWidth(1);

    pageArea_ = new QScrollArea(this);
    pageArea_->setFrameShape(QFrame::NoFrame);
    pageArea_->setWidgetResizable(true);
    pageArea_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    pageArea_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    row->addWidget(sidebar_);
    row->addWidget(divider);
    row->addWidget(pageArea_, 1);

    sidebar_->setCurrentRow(0);
    showPage();
    connect(sidebar_, &QListWidget::currentRowChanged, this, [this](int current) {
        if (current >= 0 && static_cast<std::size_t>(current) < allHelpTopics().size())
            setSelected(allHelpTopics()[static_cast<std::size_t>(current)]);
    });
}

void MarquetryHelpView::setSelected(HelpTopic topic) {
    if (topic == selected_)
        return;
    selected_ = topic;
    const auto& topics = allHelpTopics();
    const int row = static_cast<int>(std::find(topics.begin(), topics.end(), topic) - topics.begin());
    if (sidebar_->currentRow() != row)
        sidebar_->setCurrentRow(row); // re-enters here with the same topic and returns at once
    showPage();
}

void MarquetryHelpView::showPage() {
    // A new scrolled widget per page, rather than a page swapped inside the
    // old one: the scroll area only sizes wrapped text to its width when it
    // is handed a widget, so a swapped page would be squeezed into the old
    // page's height.
    auto* holder = new QWidget;
    auto* column = new QVBoxLayout(holder);
    column->setContentsMargins(24, 24, 24, 24);
    column->setSpacing(16);
    column->addWidget(topicPage(selected_));
    column->addStretch(1);
    pageArea_->setWidget(holder); // deletes the previous page
}

} // namespace marquetry::ui
