#pragma once

#include <QImage>
#include <QString>
#include <QWidget>

#include <array>
#include <optional>
#include <vector>

class QListWidget;
class QScrollArea;

namespace marquetry::ui {

/// The help topics, in sidebar order; a topic's identifier is its title.
enum class HelpTopic {
    welcome,
    getStarted,
    mainInterface,
    chopModels,
    mashupMode,
    playback,
    export_, // "export" is a C++ keyword
    licenseTerms,
    troubleshooting,
};

/// Every topic, in sidebar order.
const std::array<HelpTopic, 9>& allHelpTopics();

/// The topic's title, as the sidebar and the page show it.
QString helpTopicTitle(HelpTopic topic);

/// One line of a help page, with the font it is set in.
struct HelpBlock {
    enum class Style {
        header,     ///< the logo, or the product name when there is none; no text
        largeTitle, ///< bold
        title,      ///< bold
        title3,
        headline,
        body,
    };
    Style style = Style::body;
    QString text;
    bool secondary = false;   ///< in the secondary text colour
    int extraSpaceAbove = 0;  ///< points, on top of the page's spacing

    bool operator==(const HelpBlock&) const = default;
};

/// A help page: a leading-aligned column of blocks `spacing` points apart.
struct HelpPage {
    int spacing = 8;
    std::vector<HelpBlock> blocks;

    bool operator==(const HelpPage&) const = default;
};

/// The content of one topic's page. The troubleshooting advice names the
/// platform the program was built for.
HelpPage helpPage(HelpTopic topic);

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

    HelpTopic selected() const { return selected_; }
    /// Shows `topic`'s page and selects its sidebar row.
    void setSelected(HelpTopic topic);

    /// A new widget showing `topic`'s page; the caller owns it.
    static QWidget* page(HelpTopic topic);

private:
    void showPage();

    HelpTopic selected_ = HelpTopic::welcome;
    QListWidget* sidebar_ = nullptr;
    QScrollArea* pageArea_ = nullptr;
};

} // namespace marquetry::ui
