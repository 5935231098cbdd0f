#pragma once

class QPlainTextEdit;

/// Makes a console's text area fit for a panel: a finger that drags the text scrolls it, and
/// lines with "[Error]" are coloured. Text, cursor and form are left alone. To be called once
/// for a text area. GUI thread.
void setUpConsoleText(QPlainTextEdit* area);
