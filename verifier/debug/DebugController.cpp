#include "debug/DebugController.h"

#include "debug/ConsoleText.h"
#include "ui_DebugController.h"

DebugController::DebugController(QWidget* parent)
    : QWidget(parent), m_ui(std::make_unique<Ui_DebugController>())
{
    m_ui->setupUi(this);
    setUpConsoleText(m_ui->PLAIN_DEBUG_CONTROLLER);
}

DebugController::~DebugController() = default;

void DebugController::insertPlainText(const QString& text)
{
    m_ui->PLAIN_DEBUG_CONTROLLER->insertPlainText(text);
}

void DebugController::ensureCursorVisible()
{
    m_ui->PLAIN_DEBUG_CONTROLLER->ensureCursorVisible();
}

void DebugController::on_BUTTON_CLEAR_clicked()
{
    m_ui->PLAIN_DEBUG_CONTROLLER->clear();
}
