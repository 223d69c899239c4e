#pragma once

#include <QSpinBox>

#include <optional>

namespace marquetry::ui {

/// A spin box whose typed whole numbers past its limits become the nearest
/// limit: 200 typed into a box that ends at 128 reads 128, rather than the
/// 20 a plain spin box keeps when it refuses the last digit. Numbers above
/// the maximum take effect as they are typed; numbers below the minimum when
/// editing ends, since they may be the start of a longer one. Main thread
/// only.
class ClampingSpinBox final : public QSpinBox {
    Q_OBJECT
public:
    using QSpinBox::QSpinBox;

protected:
    QValidator::State validate(QString& text, int& position) const override;
    int valueFromText(const QString& text) const override;
    void fixup(QString& text) const override;

private:
    /// The typed number between prefix and suffix, if the text is one.
    std::optional<qlonglong> typedNumber(const QString& text) const;
};

} // namespace marquetry::ui
