#pragma once

/// Makes the form look the same on every screen: 96 dots per inch, one pixel for one, and a font
/// of its width, whatever the screen says of its size and whatever the environment asks for. The
/// form is laid out in pixels of a panel of 800 x 480, its fonts are given in points, and the
/// live view is one pixel of the window for one of the picture: a screen that reports its real
/// size (233 dots per inch at 4 inches) would cut every caption, a scale factor would push the
/// controls off the panel. To be called before the application object is made.
void setUpPanel();
