#include "debug/DebugMessage.h"

#include "debug/ConsoleText.h"
#include "ui_DebugMessage.h"

DebugMessage::DebugMessage(QWidget* parent) : QWidget(parent), m_ui(std::make_unique<Ui_DebugMessage>())
{
    m_ui->setupUi(this);
    setUpConsoleText(m_ui->PLAIN_DEBUG_MESSAGE);
}

DebugMessage::~DebugMessage() = default;

void DebugMessage::insertPlainText(const QString& text)
{
    m_ui->PLAIN_DEBUG_MESSAGE->insertPlainText(text);
}

void DebugMessage::ensureCursorVisible()
{
    m_ui->PLAIN_DEBUG_MESSAGE->ensureCursorVisible();
}

void DebugMessage::on_BUTTON_CLEAR_clicked()
{
    m_ui->PLAIN_DEBUG_MESSAGE->clear();
}
