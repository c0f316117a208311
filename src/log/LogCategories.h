#pragma once

#include <QLoggingCategory>

// One logging category per subsystem. Debug output is off by default and can be turned on for one subsystem
// alone, e.g. QT_LOGGING_RULES="vontrel.ai.debug=true"; information, warnings and errors always show.
Q_DECLARE_LOGGING_CATEGORY(lcAi)       // vontrel.ai
Q_DECLARE_LOGGING_CATEGORY(lcApp)      // vontrel.app
Q_DECLARE_LOGGING_CATEGORY(lcCapture)  // vontrel.capture
Q_DECLARE_LOGGING_CATEGORY(lcConfig)   // vontrel.config
Q_DECLARE_LOGGING_CATEGORY(lcI18n)     // vontrel.i18n
Q_DECLARE_LOGGING_CATEGORY(lcOcr)      // vontrel.ocr
Q_DECLARE_LOGGING_CATEGORY(lcPlatform) // vontrel.platform
Q_DECLARE_LOGGING_CATEGORY(lcSession)  // vontrel.session
Q_DECLARE_LOGGING_CATEGORY(lcUi)       // vontrel.ui
Q_DECLARE_LOGGING_CATEGORY(lcUpdate)   // vontrel.update
