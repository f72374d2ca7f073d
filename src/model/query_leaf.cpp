#include "model/query_leaf.h"

#include "common/log.h"
#include "index/query/parser.h"
#include "model/abstract_attribute.h"
#include "model/value_text.h"
#include "model/value_transformer.h"

#include <QDate>
#include <QDateTime>
#include <QStringList>

namespace trovara::model {

namespace {

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC.
constexpr double kReferenceDateOffset = 978307200.0;

// A date as the query text writes it: seconds since 2001-01-01 00:00:00 UTC,
// deliberately narrowed to single precision, so that present-day values are
// rounded to a multiple of 32 or 64 seconds.
QVariant absoluteTime(const QDateTime& date)
{
    const double seconds = static_cast<double>(date.toMSecsSinceEpoch()) / 1000.0 - kReferenceDateOffset;
    return QVariant::fromValue(static_cast<float>(seconds));
}

// Local midnight at the start of the day `days` after the date's local day.
QDateTime startOfLocalDay(const QDateTime& date, int days)
{
    return date.toLocalTime().date().addDays(days).startOfDay(Qt::LocalTime);
}

bool isWordOperator(const RelationalOperator* op)
{
    return op == RelationalOperator::containsWordsOperator() || op == RelationalOperator::containsPrefixesOperator()
           || op == RelationalOperator::containsFuzzyOperator();
}

}  // namespace

QueryAttribute* QueryLeaf::queryAttribute() const
{
    return static_cast<QueryAttribute*>(object(QStringLiteral("queryAttribute")));
}

void QueryLeaf::setQueryAttribute(QueryAttribute* attribute)
{
    setObject(QStringLiteral("queryAttribute"), attribute);
    if (!attribute || attribute->applicableOperators().empty()) {
        setQueryOperator({});
    } else {
        setQueryOperator(attribute->applicableOperators().front()->representation());
    }
}

const RelationalOperator* QueryLeaf::relationalOperator() const
{
    return RelationalOperatorTransformer::sharedInstance()->lookup(queryOperator());
}

const Unit* QueryLeaf::unit() const
{
    return UnitTransformer::sharedInstance()->lookup(queryUnit());
}

AttributeValue* QueryLeaf::attributeValueForKey(const QString& attributeKey)
{
    store::ManagedObjectContext* context = managedObjectContext();
    if (!context || isDeleted()) {
        TLOG(QStringLiteral("StackTrace: attributeValueForKey: %1 asked of a row outside any document")
                 .arg(attributeKey));
        return nullptr;
    }
    Result<store::Predicate> predicate = store::Predicate::format(
        QStringLiteral("queryLeaf == %@ && attributeKey == %@"), {static_cast<store::ManagedObject*>(this), attributeKey});
    Result<std::vector<AttributeValue*>> found = context->fetch<AttributeValue>(predicate.value(), {}, 1);
    if (found && !found->empty()) {
        return found->front();
    }
    auto* remembered = context->insert<AttributeValue>();
    remembered->setAttributeKey(attributeKey);
    remembered->setQueryLeaf(this);
    return remembered;
}

void QueryLeaf::setQueryValues()
{
    QueryAttribute* attribute = queryAttribute();
    if (!attribute) {
        return;
    }
    const std::vector<const RelationalOperator*>& applicable = attribute->applicableOperators();
    const RelationalOperator* op = relationalOperator();
    if (std::find(applicable.begin(), applicable.end(), op) == applicable.end()) {
        setQueryOperator({});
    }

    const QString key = attribute->attributeKey();
    if (AttributeValue* remembered = attributeValueForKey(key)) {
        setQueryBoolean(remembered->queryBoolean());
        setQueryDate(remembered->queryDate());
        setQueryNumber(remembered->queryNumber());
        setQueryString(remembered->queryString());
        setQueryUnit(remembered->queryUnit());
    }

    if (attribute->isNumberType()) {
        if (!queryUnit().isValid() && key == QLatin1String("kMDItemFSSize")) {
            setQueryUnit(QStringLiteral("KB"));
        }
    } else if (attribute->isDateType()) {
        if (!queryUnit().isValid()) {
            setQueryUnit(QStringLiteral("day"));
        }
        if (!queryDate().isValid()) {
            setQueryDate(QDateTime::currentDateTimeUtc());
        }
    } else if (attribute->isBooleanType()) {
        if (!queryBoolean().isValid()) {
            setQueryBoolean(true);
        }
    }

    if (!queryOperator().isValid()) {
        const RelationalOperator* chosen = nullptr;
        if (attribute->isStringType()) {
            if (key == QLatin1String("kMDItemTextContent")) {
                chosen = RelationalOperator::containsPrefixesOperator();
            } else if (key == QLatin1String("kMDItemContentTypeTree")) {
                chosen = RelationalOperator::isOperator();
            } else {
                chosen = RelationalOperator::containsOperator();
            }
        } else if (attribute->isNumberType()) {
            chosen = key == QLatin1String("kMDItemFSSize") ? RelationalOperator::greaterThanOperator()
                                                           : RelationalOperator::equalOperator();
        } else if (attribute->isBooleanType()) {
            chosen = RelationalOperator::equalOperator();
        } else if (attribute->isDateType()) {
            chosen = RelationalOperator::withinLastOperator();
        }
        if (chosen) {
            setQueryOperator(chosen->representation());
        }
    }
}

QueryLeaf* QueryLeaf::addRow()
{
    QueryNode* group = parent();
    return group ? group->addRowFromIndex(sortIndexValue()) : nullptr;
}

QString QueryLeaf::expression() const
{
    const QString text = writtenExpression();
    if (!text.isEmpty() && !index::query::parseQuery(text.toStdString()).ok()) {
        return QStringLiteral("");
    }
    return text;
}

QString QueryLeaf::writtenExpression() const
{
    const QueryAttribute* attribute = queryAttribute();
    const RelationalOperator* op = relationalOperator();
    if (!attribute || !op) {
        // An unknown operator makes the row incomplete: it contributes
        // nothing, like an empty row.
        return QStringLiteral("");
    }
    const QString key = attribute->attributeKey();
    const Unit* unit = this->unit();
    auto E = [&](const QString& k, const QVariant& v, const RelationalOperator* o) {
        return o->expressionWithAttribute(k, v, unit);
    };

    if (attribute->isStringType()) {
        const QVariant stringValue = queryString();
        const QString string = stringValue.toString();
        if (!stringValue.isValid() || string.isEmpty()) {
            return QStringLiteral("");
        }
        if (isWordOperator(op)) {
            auto words = [&](const QString& k) {
                QString text = QStringLiteral("(");
                for (const QString& word : string.split(QLatin1Char(' '))) {
                    if (!word.isEmpty()) {
                        text += QLatin1Char('(') + E(k, word, op) + QStringLiteral(") && ");
                    }
                }
                if (text.endsWith(QLatin1String(" && "))) {
                    text.chop(4);
                }
                return text + QLatin1Char(')');
            };
            const QString first = words(key);
            if (key != QLatin1String("*")) {
                return first;
            }
            return QStringLiteral("(%1 || %2)").arg(first, words(QStringLiteral("kMDItemTextContent")));
        }
        if (key == QLatin1String("kMDItemOMUserTags") || key == QLatin1String("kOMUserTags")) {
            // Tags are searched under both names, whichever the row names.
            return QStringLiteral("(%1 || %2 )")
                .arg(E(QStringLiteral("kMDItemOMUserTags"), string, op), E(QStringLiteral("kOMUserTags"), string, op));
        }
        return E(key, stringValue, op);
    }

    if (attribute->isNumberType()) {
        const QVariant number = queryNumber();
        if (!number.isValid() || integerValueOf(number) == FinderLabelValue::kAnyLabel) {
            return QStringLiteral("");
        }
        return E(key, number, op);
    }

    if (attribute->isBooleanType()) {
        const QVariant flag = queryBoolean();
        return flag.isValid() ? E(key, flag, op) : QStringLiteral("");
    }

    if (attribute->isDateType()) {
        if (op == RelationalOperator::withinLastOperator()) {
            const QVariant count = queryNumber();
            if (!count.isValid()) {
                return QStringLiteral("");
            }
            // The upper bound leaves out items dated in the future.
            return QStringLiteral("(%1 && %2 <= '$time.now(-0)')").arg(E(key, count, op), key);
        }
        const QVariant dateValue = queryDate();
        if (!dateValue.isValid() || !dateValue.toDateTime().isValid()) {
            return QStringLiteral("");
        }
        const QDateTime date = dateValue.toDateTime();
        if (op == RelationalOperator::onOperator()) {
            return QStringLiteral("(%1 && %2 )")
                .arg(E(key, absoluteTime(startOfLocalDay(date, 0)), RelationalOperator::afterOperator()),
                     E(key, absoluteTime(startOfLocalDay(date, 1)), RelationalOperator::beforeOperator()));
        }
        if (op == RelationalOperator::beforeOperator()) {
            return E(key, absoluteTime(startOfLocalDay(date, 0)), op);
        }
        if (op == RelationalOperator::afterOperator()) {
            return E(key, absoluteTime(startOfLocalDay(date, 1)), op);
        }
        return E(key, absoluteTime(date), op);
    }
    return QStringLiteral("");
}

QueryLeaf* AttributeValue::queryLeaf() const
{
    return static_cast<QueryLeaf*>(object(QStringLiteral("queryLeaf")));
}

void AttributeValue::setQueryLeaf(QueryLeaf* leaf)
{
    setObject(QStringLiteral("queryLeaf"), leaf);
}

void AttributeValue::awakeFromInsert()
{
    setPrimitiveValue(QStringLiteral("queryBoolean"), {});
}

}  // namespace trovara::model
