#include "platform/mac/MacOcrAdapter.h"

namespace {

bool isLanguage(const QString &code, const QString &language)
{
    return code == language || code.startsWith(language + QLatin1Char('-'));
}

} // namespace

QStringList MacOcrAdapter::recognitionLanguages(const QStringList &supported, qsizetype *chineseCount)
{
    QStringList chinese;
    QStringList english;
    for (const QString &code : supported) {
        if (isLanguage(code, QStringLiteral("zh")))
            chinese.append(code);
        else if (isLanguage(code, QStringLiteral("en")))
            english.append(code);
    }
    if (chineseCount)
        *chineseCount = chinese.size();
    return chinese + english;
}

void MacOcrAdapter::appendLine(QString &text, const QString &line)
{
    if (!text.isEmpty())
        text += QLatin1Char('\n');
    text += line;
}
