#include "ui/ContentView.hpp"

namespace marquetry::ui {

ContentView::ContentView(model::Platform platform, QWidget* parent)
    : QWidget(parent), model_(std::make_unique<model::AppModel>(std::move(platform))) {}

ContentView::~ContentView() = default;

} // namespace marquetry::ui
