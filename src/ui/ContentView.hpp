#pragma once

#include "model/AppModel.hpp"

#include <QWidget>

namespace marquetry::ui {

/// The main window's content: every control of the working surface, drawn
/// from the model it owns and redrawn from the model's change notices only.
class ContentView final : public QWidget {
    Q_OBJECT
public:
    /// Creates the one AppModel of this window over `platform`, which must
    /// outlive the view.
    explicit ContentView(model::Platform platform, QWidget* parent = nullptr);
    ~ContentView() override;

    model::AppModel& model() { return *model_; }

private:
    std::unique_ptr<model::AppModel> model_;
};

} // namespace marquetry::ui
