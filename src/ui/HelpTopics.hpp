#pragma once

// What the help window says: its topics and the text of each topic's page,
// as data the window turns into widgets.

#include <QString>

#include <array>
#include <vector>

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
    optionsHistoryShortcuts, ///< after the others, which keep their places
};

/// Every topic, in sidebar order.
const std::array<HelpTopic, 10>& allHelpTopics();

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

} // namespace marquetry::ui
