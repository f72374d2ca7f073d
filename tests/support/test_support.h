// Helpers shared by the tests.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdlib>
#include <ctime>
#include <ostream>
#include <string>

// Readable test failure messages for Qt strings.
inline void PrintTo(const QString& text, std::ostream* stream)
{
    *stream << '"' << text.toStdString() << '"';
}
inline void PrintTo(const QStringList& list, std::ostream* stream)
{
    *stream << '[' << list.join(QStringLiteral(" | ")).toStdString() << ']';
}
inline void PrintTo(const QByteArray& bytes, std::ostream* stream)
{
    *stream << '"' << bytes.toStdString() << '"';
}

namespace trovara::test {

// Sets the process's time zone for the life of the object.
class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone)
    {
        const char* old = std::getenv("TZ");
        m_hadOld = old != nullptr;
        if (old) {
            m_old = old;
        }
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ScopedTimeZone()
    {
        if (m_hadOld) {
            setenv("TZ", m_old.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::string m_old;
    bool m_hadOld = false;
};

// Sets an environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value)
        : m_name(name)
    {
        const char* old = std::getenv(name);
        m_hadOld = old != nullptr;
        if (old) {
            m_old = old;
        }
        if (value) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~ScopedEnv()
    {
        if (m_hadOld) {
            setenv(m_name.c_str(), m_old.c_str(), 1);
        } else {
            unsetenv(m_name.c_str());
        }
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string m_name;
    std::string m_old;
    bool m_hadOld = false;
};

// A fresh folder inside the test's private home, removed with the object.
QString makeTemporaryFolder(const QString& name);

}  // namespace trovara::test
