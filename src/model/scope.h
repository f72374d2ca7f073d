// The places a document searches and the places it leaves out.
//
// A Scope is one place: a folder path (stored with "~" for the home folder)
// or one of the three named scopes (home, local computer, network). A
// document lists the places to search as OrderedScopes and the places to
// leave out as OrderedExclusionScopes, each ordered by sortIndex.
#pragma once

#include "store/managed_object.h"
#include "store/managed_object_context.h"

#include <optional>
#include <vector>

namespace trovara::model {

class Scope final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "Scope";

    QString path() const { return value(QStringLiteral("path")).toString(); }
    void setPath(const QString& path) { setValue(QStringLiteral("path"), path); }
    bool isConstant() const { return value(QStringLiteral("isConstant")).toBool(); }
    void setIsConstant(bool constant) { setValue(QStringLiteral("isConstant"), constant); }

    // The constant's label for a named scope, the start-up volume's name
    // for "/", otherwise the path as stored. Computed on first request and
    // cached.
    QString label() const;

    // Constant scopes first, then by path.
    static std::vector<store::SortDescriptor> sortDescriptors();

    // The scope for the path (abbreviated with "~" first), made when there
    // is none. A failed fetch is presented and gives nullptr.
    static Scope* scopeWithPath(const QString& path, store::ManagedObjectContext& context);
    // Every scope, sorted; a failed fetch is logged and gives an empty list.
    static std::vector<Scope*> availableScopesInContext(store::ManagedObjectContext& context);
    // The folder scopes only, sorted likewise.
    static std::vector<Scope*> nonConstantScopesInContext(store::ManagedObjectContext& context);

protected:
    void willTurnIntoFault() override { m_label.reset(); }

private:
    mutable std::optional<QString> m_label;
};

class OrderedScope final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "OrderedScope";

    Scope* scope() const;
    void setScope(Scope* scope);
    int sortIndexValue() const { return value(QStringLiteral("sortIndex")).toInt(); }
    void setSortIndexValue(int index) { setValue(QStringLiteral("sortIndex"), index); }

    static std::vector<store::SortDescriptor> sortDescriptors();
    // Every entry in order; a failed fetch is presented and gives an empty
    // list (with `ok` false when given).
    static std::vector<OrderedScope*> orderedScopes(store::ManagedObjectContext& context, bool* ok = nullptr);
    // A new last entry (one past the last entry's index, 0 for the first).
    static OrderedScope* createOrderedScopeWith(Scope* scope);
};

class OrderedExclusionScope final : public store::ManagedObject {
public:
    static constexpr const char* kEntityName = "OrderedExclusionScope";

    Scope* scope() const;
    void setScope(Scope* scope);
    int sortIndexValue() const { return value(QStringLiteral("sortIndex")).toInt(); }
    void setSortIndexValue(int index) { setValue(QStringLiteral("sortIndex"), index); }

    static std::vector<store::SortDescriptor> sortDescriptors();
    static std::vector<OrderedExclusionScope*> orderedExclusionScopes(store::ManagedObjectContext& context,
                                                                     bool* ok = nullptr);
    static OrderedExclusionScope* createOrderedExclusionScopeWith(Scope* scope);
};

}  // namespace trovara::model
