#pragma once

#include <QString>
#include <QStringList>

// The lines the generated benchmark images are drawn from: user-interface texts in "en", "zh", "mixed"
// (Chinese with Latin words and numbers) and "code"; any other language gets the English lines.
const QStringList &vontrelBenchOcrTexts(const QString &language);
