#include "model/scope.h"

#include "common/error_presenter.h"
#include "common/log.h"
#include "common/paths.h"
#include "model/platform.h"
#include "model/preferred_location.h"

namespace trovara::model {

namespace {

std::vector<Scope*> fetchScopes(store::ManagedObjectContext& context, const store::Predicate& predicate)
{
    Result<std::vector<Scope*>> found = context.fetch<Scope>(predicate, Scope::sortDescriptors());
    if (!found) {
        TLOG(QStringLiteral("Failed to fetch available scopes: %1").arg(found.error().toString()));
        return {};
    }
    return found.value();
}

template <typename T>
std::vector<T*> fetchOrdered(store::ManagedObjectContext& context, bool* ok)
{
    Result<std::vector<T*>> found = context.fetch<T>({}, T::sortDescriptors());
    if (ok) {
        *ok = found.ok();
    }
    if (!found) {
        presentError(found.error());
        return {};
    }
    return found.value();
}

template <typename T>
T* createOrdered(Scope* scope)
{
    store::ManagedObjectContext& context = *scope->managedObjectContext();
    Result<std::vector<T*>> existing = context.fetch<T>({}, T::sortDescriptors());
    if (!existing) {
        presentError(existing.error());
        return nullptr;
    }
    auto* entry = context.insert<T>();
    entry->setSortIndexValue(existing->empty() ? 0 : existing->back()->sortIndexValue() + 1);
    entry->setScope(scope);
    return entry;
}

}  // namespace

QString Scope::label() const
{
    if (!m_label) {
        const QString stored = path();
        if (isConstant()) {
            m_label = constantScopeLabel(stored);
        } else if (stored == QLatin1String("/")) {
            m_label = platform::startupVolumeName();
        } else {
            m_label = stored;
        }
    }
    return *m_label;
}

std::vector<store::SortDescriptor> Scope::sortDescriptors()
{
    return {{QStringLiteral("isConstant"), false, {}}, {QStringLiteral("path"), true, {}}};
}

Scope* Scope::scopeWithPath(const QString& path, store::ManagedObjectContext& context)
{
    const QString abbreviated = abbreviateWithTilde(path);
    Result<store::Predicate> predicate = store::Predicate::format(QStringLiteral("path == %@"), {abbreviated});
    Result<std::vector<Scope*>> found = context.fetch<Scope>(predicate.value(), {}, 1);
    if (!found) {
        presentError(found.error());
        return nullptr;
    }
    if (!found->empty()) {
        return found->front();
    }
    auto* scope = context.insert<Scope>();
    scope->setPath(abbreviated);
    return scope;
}

std::vector<Scope*> Scope::availableScopesInContext(store::ManagedObjectContext& context)
{
    return fetchScopes(context, {});
}

std::vector<Scope*> Scope::nonConstantScopesInContext(store::ManagedObjectContext& context)
{
    return fetchScopes(context, store::Predicate::format(QStringLiteral("isConstant == %@"), {false}).value());
}

Scope* OrderedScope::scope() const
{
    return static_cast<Scope*>(object(QStringLiteral("scope")));
}

void OrderedScope::setScope(Scope* scope)
{
    setObject(QStringLiteral("scope"), scope);
}

std::vector<store::SortDescriptor> OrderedScope::sortDescriptors()
{
    return {{QStringLiteral("sortIndex"), true, {}}};
}

std::vector<OrderedScope*> OrderedScope::orderedScopes(store::ManagedObjectContext& context, bool* ok)
{
    return fetchOrdered<OrderedScope>(context, ok);
}

OrderedScope* OrderedScope::createOrderedScopeWith(Scope* scope)
{
    return createOrdered<OrderedScope>(scope);
}

Scope* OrderedExclusionScope::scope() const
{
    return static_cast<Scope*>(object(QStringLiteral("scope")));
}

void OrderedExclusionScope::setScope(Scope* scope)
{
    setObject(QStringLiteral("scope"), scope);
}

std::vector<store::SortDescriptor> OrderedExclusionScope::sortDescriptors()
{
    return {{QStringLiteral("sortIndex"), true, {}}};
}

std::vector<OrderedExclusionScope*> OrderedExclusionScope::orderedExclusionScopes(store::ManagedObjectContext& context,
                                                                                   bool* ok)
{
    return fetchOrdered<OrderedExclusionScope>(context, ok);
}

OrderedExclusionScope* OrderedExclusionScope::createOrderedExclusionScopeWith(Scope* scope)
{
    return createOrdered<OrderedExclusionScope>(scope);
}

}  // namespace trovara::model
