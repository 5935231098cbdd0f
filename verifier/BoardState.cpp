#include "BoardState.h"

#include <QLabel>
#include <QPushButton>

namespace {

constexpr int kCaptionLeft_px = 5;
constexpr int kCaptionFont_pt = 8;

} // namespace

void showBoardState(QPushButton* button)
{
    button->setFlat(false);
    auto* caption = new QLabel("Board", button);
    caption->setObjectName("LABEL_CONNECT");
    caption->setAttribute(Qt::WA_TransparentForMouseEvents);
    // The colour that marks the button would cover what is painted beneath the caption.
    caption->setStyleSheet("background-color: transparent;");
    QFont font = button->font();
    font.setPointSize(kCaptionFont_pt);
    font.setBold(false);
    caption->setFont(font);
    caption->move(kCaptionLeft_px, 0);
    caption->resize(caption->sizeHint().width(), button->height());
}
