// Logging of the session library: every line goes to the Qt message handler at
// debug severity in the "default" category, with the library's own file name,
// the full function signature and the source line as context. The format
// literal carries the level letter and tag ("D/OPSession ..."); the helper
// supplies the short function name and the line for its leading "%s(%d)".
#ifndef QORVICLOGGING_P_H
#define QORVICLOGGING_P_H

#include <QtCore/qloggingcategory.h>
#include <QtCore/qlogging.h>

inline bool orvicLogEnabled()
{
    const QLoggingCategory *category = QLoggingCategory::defaultCategory();
    return category && category->isDebugEnabled();
}

#define ORVIC_LOG(file, fmt, ...)                                                          \
    do {                                                                                   \
        if (orvicLogEnabled())                                                             \
            QMessageLogger(file, __LINE__, Q_FUNC_INFO, "default")                         \
                .debug(fmt, __func__, __LINE__, ##__VA_ARGS__);                            \
    } while (false)

#define ORVIC_LOG_STREAM(file)                                                             \
    for (bool orvicLogOnce = orvicLogEnabled(); orvicLogOnce; orvicLogOnce = false)        \
        QMessageLogger(file, __LINE__, Q_FUNC_INFO, "default").debug()

#define ORVIC_SESSION_FILE "qorvicplayersession"
#define ORVIC_METASESSION_FILE "qorvicmetadatasession"

// fmt: "D/OPSession %s(%d):..." and the like.
#define OPSESSION_LOG(fmt, ...) ORVIC_LOG(ORVIC_SESSION_FILE, fmt, ##__VA_ARGS__)
#define OPMETA_LOG(fmt, ...) ORVIC_LOG(ORVIC_METASESSION_FILE, fmt, ##__VA_ARGS__)
#define OPMETA_LOG_STREAM() ORVIC_LOG_STREAM(ORVIC_METASESSION_FILE)

#endif // QORVICLOGGING_P_H
