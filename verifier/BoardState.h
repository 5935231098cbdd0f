#pragma once

class QPushButton;

/// Makes the button read as what is known of the controller board rather than as a choice: a
/// caption at its left tells what the state, the button's text, is about. Without the call the
/// button is flat, as the form leaves it, and shows nothing at all. Once per button; GUI thread.
void showBoardState(QPushButton* button);
