#pragma once

#include <QRect>

/// Styles, texts and sizes that several parts of the main window share.

/// A selected or busy button.
constexpr const char* kHighlightStyle = "background-color: rgb(0, 170, 255);";
/// Neither selected nor busy.
constexpr const char* kPlainStyle = "background-color: none;";

/// Titles of the message boxes: information and questions, errors.
constexpr const char* kMessageTitle = "ORLA-III";
constexpr const char* kErrorTitle = "Error";

/// Text of every box that asks for a disk.
constexpr const char* kInsertDiskText = "Please insert USB disk !!!";

/// The live view, in window pixels.
constexpr QRect kLiveViewRect(0, 0, 640, 480);
