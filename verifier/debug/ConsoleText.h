#pragma once

class QPlainTextEdit;

/// Makes a console's text area fit for a panel: a finger that drags the text scrolls it, line
/// by line with the finger, and lines with "[Error]" are set off in colour. The text itself,
/// its cursor and what stands in the form are left alone. Once per text area; GUI thread.
void setUpConsoleText(QPlainTextEdit* area);
