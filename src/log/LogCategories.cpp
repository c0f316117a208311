#include "log/LogCategories.h"

Q_LOGGING_CATEGORY(lcAi, "vontrel.ai", QtInfoMsg)
Q_LOGGING_CATEGORY(lcApp, "vontrel.app", QtInfoMsg)
Q_LOGGING_CATEGORY(lcCapture, "vontrel.capture", QtInfoMsg)
Q_LOGGING_CATEGORY(lcConfig, "vontrel.config", QtInfoMsg)
Q_LOGGING_CATEGORY(lcI18n, "vontrel.i18n", QtInfoMsg)
Q_LOGGING_CATEGORY(lcOcr, "vontrel.ocr", QtInfoMsg)
Q_LOGGING_CATEGORY(lcPlatform, "vontrel.platform", QtInfoMsg)
Q_LOGGING_CATEGORY(lcSession, "vontrel.session", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUi, "vontrel.ui", QtInfoMsg)
Q_LOGGING_CATEGORY(lcUpdate, "vontrel.update", QtInfoMsg)
