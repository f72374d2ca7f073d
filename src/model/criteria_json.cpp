#include "model/criteria_json.h"

#include "common/json_reader.h"
#include "model/abstract_attribute.h"
#include "model/query_leaf.h"
#include "model/value_text.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTimeZone>

namespace trovara::model {

namespace {

using json::Value;

class Reader {
public:
    explicit Reader(store::ManagedObjectContext& context)
        : m_context(context)
    {
    }

    bool fill(QueryNode* group, const Value& value)
    {
        if (value.type != Value::Type::Object) {
            return fail(value, QStringLiteral("a group must be an object, not %1").arg(value.typeName()));
        }
        for (const auto& [key, member] : value.object) {
            if (key == QLatin1String("operator")) {
                if (member.type != Value::Type::String) {
                    return fail(member, QStringLiteral("a group's \"operator\" must be a text"));
                }
                group->setOperatorName(member.string);
            } else if (key != QLatin1String("children")) {
                return fail(member, QStringLiteral("unknown field \"%1\" in a group").arg(key));
            }
        }
        const Value* children = value.member(QStringLiteral("children"));
        if (!children || children->type == Value::Type::Null) {
            return true;
        }
        if (children->type != Value::Type::Array) {
            return fail(*children, QStringLiteral("\"children\" must be a list, not %1").arg(children->typeName()));
        }
        int index = 0;
        for (const Value& child : children->array) {
            if (child.type != Value::Type::Object) {
                return fail(child, QStringLiteral("a child must be an object, not %1").arg(child.typeName()));
            }
            if (child.member(QStringLiteral("attribute"))) {
                if (!addRow(group, child, index++)) {
                    return false;
                }
            } else {
                auto* node = m_context.insert<QueryNode>();
                node->setOperatorName(QStringLiteral("AND"));
                node->setSortIndexValue(index++);
                node->setParent(group);
                if (!fill(node, child)) {
                    return false;
                }
            }
        }
        return true;
    }

    const Error& error() const { return m_error; }

private:
    bool fail(const Value& at, const QString& what)
    {
        m_error = Error::make(Error::kFileReadCorruptError, QStringLiteral("Invalid criteria"),
                              QStringLiteral("line %1, column %2: %3").arg(at.line).arg(at.column).arg(what));
        return false;
    }

    bool wrongType(const QString& field, const Value& value, const char* expected)
    {
        return fail(value, QStringLiteral("\"%1\" must be %2, not %3")
                               .arg(field, QString::fromLatin1(expected), value.typeName()));
    }

    static QVariant number(const Value& value)
    {
        return value.isInteger ? QVariant::fromValue<qint64>(value.integer) : QVariant(value.number);
    }

    bool addRow(QueryNode* group, const Value& row, int index)
    {
        if (row.member(QStringLiteral("children"))) {
            return fail(*row.member(QStringLiteral("children")), QStringLiteral("a row has no \"children\""));
        }
        const Value& attribute = *row.member(QStringLiteral("attribute"));
        if (attribute.type != Value::Type::String) {
            return wrongType(QStringLiteral("attribute"), attribute, "a text");
        }
        auto* leaf = m_context.insert<QueryLeaf>();
        leaf->setSortIndexValue(index);
        leaf->setParent(group);
        leaf->setQueryAttribute(attributeWithKey(attribute.string));

        for (const auto& [key, value] : row.object) {
            const bool null = value.type == Value::Type::Null;
            if (key == QLatin1String("attribute")) {
                continue;
            }
            if (key == QLatin1String("operator") || key == QLatin1String("string") || key == QLatin1String("unit")) {
                if (!null && value.type != Value::Type::String) {
                    return wrongType(key, value, "a text");
                }
                const QVariant text = null ? QVariant() : QVariant(value.string);
                if (key == QLatin1String("operator")) {
                    leaf->setQueryOperator(text);
                } else if (key == QLatin1String("string")) {
                    leaf->setQueryString(text);
                } else {
                    leaf->setQueryUnit(text);
                }
            } else if (key == QLatin1String("number")) {
                if (!null && value.type != Value::Type::Number) {
                    return wrongType(key, value, "a number");
                }
                leaf->setQueryNumber(null ? QVariant() : number(value));
            } else if (key == QLatin1String("boolean")) {
                if (null) {
                    leaf->setQueryBoolean({});
                } else if (value.type == Value::Type::Boolean) {
                    leaf->setQueryBoolean(value.boolean);
                } else if (value.type == Value::Type::Number) {
                    leaf->setQueryBoolean(number(value));
                } else {
                    return wrongType(key, value, "true, false or a number");
                }
            } else if (key == QLatin1String("date")) {
                if (null) {
                    leaf->setQueryDate({});
                    continue;
                }
                if (value.type != Value::Type::String) {
                    return wrongType(key, value, "an ISO 8601 date in a text");
                }
                const QDateTime date = parseIsoDate(value.string);
                if (!date.isValid()) {
                    return fail(value, QStringLiteral("\"%1\" is not an ISO 8601 date").arg(value.string));
                }
                leaf->setQueryDate(date);
            } else {
                return fail(value, QStringLiteral("unknown field \"%1\" in a row").arg(key));
            }
        }
        return true;
    }

    // The context finds an attribute by looking at every object it holds:
    // looked up once per key, a tree of many rows reads in linear time.
    QueryAttribute* attributeWithKey(const QString& key)
    {
        auto known = m_attributes.find(key);
        if (known == m_attributes.end()) {
            known = m_attributes.insert(key, QueryAttribute::attributeWithKey(key, m_context));
        }
        return known.value();
    }

    store::ManagedObjectContext& m_context;
    QHash<QString, QueryAttribute*> m_attributes;
    Error m_error;
};

QJsonValue jsonOf(const QVariant& value)
{
    if (!value.isValid()) {
        return QJsonValue::Null;
    }
    if (isDate(value)) {
        return value.toDateTime().toUTC().toString(Qt::ISODateWithMs);
    }
    if (value.metaType().id() == QMetaType::Bool) {
        return value.toBool();
    }
    if (isNumber(value)) {
        const int id = value.metaType().id();
        return id == QMetaType::Double || id == QMetaType::Float ? QJsonValue(value.toDouble())
                                                                 : QJsonValue(value.toLongLong());
    }
    return value.toString();
}

QJsonObject objectOf(const QueryItem& item)
{
    QJsonObject object;
    if (!item.isLeaf()) {
        const auto& node = static_cast<const QueryNode&>(item);
        object.insert(QStringLiteral("operator"), node.operatorName());
        QJsonArray children;
        for (const QueryItem* child : node.orderedChildren()) {
            children.append(objectOf(*child));
        }
        object.insert(QStringLiteral("children"), children);
        return object;
    }
    const auto& leaf = static_cast<const QueryLeaf&>(item);
    object.insert(QStringLiteral("attribute"), leaf.queryAttribute() ? leaf.queryAttribute()->attributeKey() : QString());
    const std::pair<const char*, QVariant> fields[] = {
        {"operator", leaf.queryOperator()}, {"string", leaf.queryString()},   {"number", leaf.queryNumber()},
        {"date", leaf.queryDate()},         {"boolean", leaf.queryBoolean()}, {"unit", leaf.queryUnit()},
    };
    for (const auto& [name, value] : fields) {
        if (value.isValid()) {
            object.insert(QString::fromLatin1(name), jsonOf(value));
        }
    }
    return object;
}

int localOffsetAt(qint64 msecs)
{
    return QDateTime::fromMSecsSinceEpoch(msecs, Qt::LocalTime).offsetFromUtc();
}

// A local wall-clock time as an instant. A time that occurs twice (when the
// clocks go back) is its first occurrence; a time that never occurs (when
// they go forward) is read with the offset from before the change, which
// lands as far after the gap as it was into it.
QDateTime localDateTime(const QDate& date, const QTime& time)
{
    constexpr qint64 kWindow = 36 * 3600 * 1000LL;
    const qint64 wall = QDateTime(date, time, Qt::UTC).toMSecsSinceEpoch();
    const int before = localOffsetAt(wall - kWindow);
    const int after = localOffsetAt(wall + kWindow);
    qint64 chosen = wall - before * 1000LL;
    const bool beforeFits = localOffsetAt(chosen) == before;
    const qint64 other = wall - after * 1000LL;
    const bool afterFits = localOffsetAt(other) == after;
    if (afterFits && (!beforeFits || other < chosen)) {
        chosen = other;
    }
    return QDateTime::fromMSecsSinceEpoch(chosen, Qt::LocalTime);
}

}  // namespace

Result<QueryNode*> readCriteriaJson(const QByteArray& text, store::ManagedObjectContext& context)
{
    Result<json::Value> document = json::parse(text);
    if (!document) {
        return document.error();
    }
    QueryNode* root = QueryNode::rootNodeInContext(context);
    if (!root) {
        return Error::make(Error::kFetchError, QStringLiteral("Invalid criteria"),
                           QStringLiteral("The criteria's root group could not be made."));
    }
    for (QueryItem* child : root->children()) {
        context.deleteObject(child);
    }
    const json::Value& top = document.value();
    if (top.type == json::Value::Type::Object && top.member(QStringLiteral("attribute"))) {
        return Error::make(Error::kFileReadCorruptError, QStringLiteral("Invalid criteria"),
                           QStringLiteral("line %1, column %2: the top level must be a group, not a row")
                               .arg(top.line)
                               .arg(top.column));
    }
    Reader reader(context);
    if (!reader.fill(root, top)) {
        for (QueryItem* child : root->children()) {
            context.deleteObject(child);
        }
        return reader.error();
    }
    return root;
}

QByteArray writeCriteriaJson(const QueryNode& root)
{
    return QJsonDocument(objectOf(root)).toJson(QJsonDocument::Indented);
}

QDateTime parseIsoDate(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral(
        R"(^(\d{4})-(\d{2})-(\d{2})(?:[T ](\d{2}):(\d{2})(?::(\d{2})(?:[.,](\d+))?)?(Z|[+-]\d{2}(?::?\d{2})?)?)?$)"));
    const QRegularExpressionMatch match = pattern.match(text.trimmed());
    if (!match.hasMatch()) {
        return {};
    }
    const QDate date(match.captured(1).toInt(), match.captured(2).toInt(), match.captured(3).toInt());
    if (!date.isValid()) {
        return {};
    }
    if (match.captured(4).isEmpty()) {
        return date.startOfDay(Qt::LocalTime);
    }
    int msec = 0;
    if (!match.captured(7).isEmpty()) {
        msec = qRound(QStringLiteral("0.%1").arg(match.captured(7)).toDouble() * 1000.0);
    }
    const int hour = match.captured(4).toInt();
    const int minute = match.captured(5).toInt();
    const int second = match.captured(6).isEmpty() ? 0 : match.captured(6).toInt();
    QTime time(hour, minute, second);
    if (!time.isValid()) {
        return {};
    }
    const QString zone = match.captured(8);
    QDateTime result;
    if (zone.isEmpty()) {
        result = localDateTime(date, time);
    } else if (zone == QLatin1String("Z")) {
        result = QDateTime(date, time, Qt::UTC);
    } else {
        QString digits = zone.mid(1);
        digits.remove(QLatin1Char(':'));
        const int hours = digits.left(2).toInt();
        const int minutes = digits.size() > 2 ? digits.mid(2).toInt() : 0;
        if (hours > 23 || minutes > 59) {
            return {};
        }
        const int sign = zone.startsWith(QLatin1Char('-')) ? -1 : 1;
        result = QDateTime(date, time, Qt::OffsetFromUTC, sign * (hours * 3600 + minutes * 60));
    }
    return result.isValid() ? result.addMSecs(msec) : result;
}

}  // namespace trovara::model
