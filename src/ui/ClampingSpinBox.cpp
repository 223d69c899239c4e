#include "ui/ClampingSpinBox.hpp"

#include <algorithm>
#include <limits>

namespace marquetry::ui {

std::optional<qlonglong> ClampingSpinBox::typedNumber(const QString& text) const {
    QStringView number(text);
    if (number.startsWith(prefix()))
        number = number.mid(prefix().size());
    if (number.endsWith(suffix()))
        number = number.chopped(suffix().size());
    number = number.trimmed();
    // Digits only: signs and group separators are the plain spin box's to judge.
    if (number.isEmpty() || !std::all_of(number.begin(), number.end(), [](QChar c) { return c.isDigit(); }))
        return std::nullopt;
    bool ok = false;
    const qlonglong value = number.toLongLong(&ok);
    // Too many digits for any integer: still a number past the maximum.
    return ok ? value : std::numeric_limits<qlonglong>::max();
}

QValidator::State ClampingSpinBox::validate(QString& text, int& position) const {
    if (const auto number = typedNumber(text); number && *number > maximum())
        return QValidator::Acceptable;
    return QSpinBox::validate(text, position);
}

int ClampingSpinBox::valueFromText(const QString& text) const {
    if (const auto number = typedNumber(text))
        return static_cast<int>(std::clamp<qlonglong>(*number, minimum(), maximum()));
    return QSpinBox::valueFromText(text);
}

void ClampingSpinBox::fixup(QString& text) const {
    if (const auto number = typedNumber(text))
        text = prefix() + QString::number(std::clamp<qlonglong>(*number, minimum(), maximum())) + suffix();
    else
        QSpinBox::fixup(text);
}

} // namespace marquetry::ui
