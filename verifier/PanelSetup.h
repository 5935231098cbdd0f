#pragma once

/// Makes the form look the same on every screen, whatever size the screen reports and whatever
/// the environment asks for: 96 dots per inch, no scaling, and a font of the right width.
///
/// The form is laid out in pixels of a panel of 800 x 480, its fonts in points. At the panel's
/// real 233 dots per inch (4 inches) every caption would be cut, and a scale factor would push
/// the controls off the panel. GUI thread, before the application object is made.
void setUpPanel();

/// Sets the form's font for all widgets, also of what opens over the form, such as boxes; left to
/// itself, Qt takes the platform's, another one on each panel. Boxes keep the platform's size: they
/// are few and can be large. The form says its sizes alone: named in its fonts too, the family would
/// make Qt look up each of them twice, once for what inherits it. GUI thread, after the application
/// object is made and before the form.
void setUpFont();
