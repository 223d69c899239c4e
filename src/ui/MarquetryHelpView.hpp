#pragma once

#include "ui/HelpTopics.hpp"

#include <QImage>
#include <QWidget>

#include <optional>

class QListWidget;
class QScrollArea;

namespace marquetry::ui {

/// The welcome page's header: `logo` 120 points high between two flexible
/// spaces, or the product name in large bold text when there is no logo.
QWidget* makeWelcomeHeader(const std::optional<QImage>& logo, QWidget* parent = nullptr);

/// The help window's content: the topic sidebar, a divider and the selected
/// topic's page in a vertically scrolling area. Main thread only.
class MarquetryHelpView final : public QWidget {
    Q_OBJECT
public:
    /// Opens on the Welcome topic.
    explicit MarquetryHelpView(QWidget* parent = nullptr);

    /// The topic whose page is shown.
    HelpTopic selected() const { return selected_; }
    /// Shows `topic`'s page and selects its sidebar row.
    void setSelected(HelpTopic topic);

private:
    void showPage();

    HelpTopic selected_ = HelpTopic::welcome;
    QListWidget* sidebar_ = nullptr;
    QScrollArea* pageArea_ = nullptr;
};

} // namespace marquetry::ui
