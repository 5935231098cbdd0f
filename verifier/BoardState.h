#pragma once

class QPushButton;

/// Shows the button's text, X or O, as the state of the controller board: the caption "Board"
/// is put at its left. Without this call the button stays as the form makes it, flat and
/// without a visible text. To be called once for a button. GUI thread.
void showBoardState(QPushButton* button);
