// The in-memory object graph: relationships and their inverses, delete
// rules, fetching, change notifications and undo.
#include "store/managed_object_context.h"
#include "test_model.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QSignalSpy>

#include <gtest/gtest.h>

namespace trovara::store::test {
namespace {

class ObjectGraph : public ::testing::Test {
protected:
    ObjectGraph()
        : context(testModel())
    {
        context.setAutomaticallyProcessesPendingChanges(false);
    }

    ManagedObject* folder(const QString& name, ManagedObject* parent = nullptr)
    {
        ManagedObject* object = context.insertNewObject(QStringLiteral("Folder"));
        object->setValue(QStringLiteral("name"), name);
        object->setObject(QStringLiteral("parent"), parent);
        return object;
    }

    ManagedObject* file(const QString& name, ManagedObject* parent = nullptr, qint64 size = 0)
    {
        ManagedObject* object = context.insertNewObject(QStringLiteral("File"));
        object->setValue(QStringLiteral("name"), name);
        object->setValue(QStringLiteral("size"), size);
        object->setObject(QStringLiteral("parent"), parent);
        return object;
    }

    std::vector<ManagedObject*> fetch(const QString& entity, const QString& predicate,
                                      std::vector<PredicateArgument> arguments = {},
                                      std::vector<SortDescriptor> sort = {}, int limit = 0)
    {
        FetchRequest request;
        request.entityName = entity;
        Result<Predicate> parsed = Predicate::format(predicate, arguments);
        EXPECT_TRUE(parsed.ok()) << predicate.toStdString();
        if (parsed) {
            request.predicate = parsed.value();
        }
        request.sortDescriptors = std::move(sort);
        request.fetchLimit = limit;
        Result<std::vector<ManagedObject*>> found = context.execute(request);
        EXPECT_TRUE(found.ok()) << (found.ok() ? "" : found.error().toString().toStdString());
        return found.ok() ? found.value() : std::vector<ManagedObject*>{};
    }

    static QStringList names(const std::vector<ManagedObject*>& objects)
    {
        QStringList list;
        for (ManagedObject* object : objects) {
            list << object->value(QStringLiteral("name")).toString();
        }
        return list;
    }

    ManagedObjectContext context;
};

TEST_F(ObjectGraph, SettingAToOneSideKeepsTheToManyInverseInStep)
{
    ManagedObject* home = folder(QStringLiteral("home"));
    ManagedObject* work = folder(QStringLiteral("work"));
    ManagedObject* a = file(QStringLiteral("a"), home);
    ManagedObject* b = file(QStringLiteral("b"), home);
    EXPECT_EQ(home->objects(QStringLiteral("children")), (std::vector<ManagedObject*>{a, b}));

    a->setObject(QStringLiteral("parent"), work);
    EXPECT_EQ(home->objects(QStringLiteral("children")), (std::vector<ManagedObject*>{b}));
    EXPECT_EQ(work->objects(QStringLiteral("children")), (std::vector<ManagedObject*>{a}));

    work->addObject(QStringLiteral("children"), b);
    EXPECT_EQ(b->object(QStringLiteral("parent")), work);
    EXPECT_TRUE(home->objects(QStringLiteral("children")).empty());

    work->removeObject(QStringLiteral("children"), a);
    EXPECT_EQ(a->object(QStringLiteral("parent")), nullptr);
    // Removing an object that is not a member changes nothing.
    home->removeObject(QStringLiteral("children"), b);
    EXPECT_EQ(b->object(QStringLiteral("parent")), work);
}

TEST_F(ObjectGraph, DeletingAFolderCascadesToItsChildrenAndNullifiesTags)
{
    ManagedObject* root = folder(QStringLiteral("root"));
    ManagedObject* inner = folder(QStringLiteral("inner"), root);
    ManagedObject* deep = file(QStringLiteral("deep"), inner);
    ManagedObject* top = file(QStringLiteral("top"), root);
    ManagedObject* tag = context.insertNewObject(QStringLiteral("Tag"));
    deep->setObject(QStringLiteral("tag"), tag);
    top->setObject(QStringLiteral("tag"), tag);
    ManagedObject* elsewhere = file(QStringLiteral("elsewhere"));
    elsewhere->setObject(QStringLiteral("tag"), tag);

    context.deleteObject(root);
    for (ManagedObject* gone : {root, inner, deep, top}) {
        EXPECT_TRUE(gone->isDeleted()) << gone->description().toStdString();
    }
    EXPECT_FALSE(tag->isDeleted());
    EXPECT_FALSE(elsewhere->isDeleted());
    EXPECT_EQ(tag->objects(QStringLiteral("files")), (std::vector<ManagedObject*>{elsewhere}));
    EXPECT_EQ(context.registeredObjects(), (std::vector<ManagedObject*>{tag, elsewhere}));

    // Deleting a tag only unlinks the files (nullify).
    context.deleteObject(tag);
    EXPECT_FALSE(elsewhere->isDeleted());
    EXPECT_EQ(elsewhere->object(QStringLiteral("tag")), nullptr);
}

TEST_F(ObjectGraph, NewObjectsStartWithDefaultsAndAwakeOnce)
{
    auto* f = static_cast<File*>(file(QStringLiteral("f")));
    EXPECT_EQ(f->value(QStringLiteral("rank")), QVariant::fromValue<qint64>(0));
    EXPECT_EQ(f->value(QStringLiteral("rank")).metaType().id(), QMetaType::LongLong);
    EXPECT_FALSE(f->value(QStringLiteral("modified")).isValid());
    EXPECT_EQ(f->awakeFromInsertCalls, 1);
    EXPECT_TRUE(f->isInserted());
    EXPECT_GT(f->objectId(), 0);
    EXPECT_NE(f->objectId(), file(QStringLiteral("g"))->objectId());
}

TEST_F(ObjectGraph, InsertingAnAbstractOrUnknownEntityIsAProgrammingError)
{
    try {
        context.insertNewObject(QStringLiteral("Item"));
        FAIL() << "no exception";
    } catch (const AbstractClassException& exception) {
        EXPECT_STREQ(exception.what(), "Error, attempting to instantiate Item directly.");
    }
    EXPECT_THROW(context.insertNewObject(QStringLiteral("Nothing")), AbstractClassException);
}

TEST_F(ObjectGraph, FetchesFilterSortAndLimit)
{
    ManagedObject* root = folder(QStringLiteral("root"));
    ManagedObject* docs = folder(QStringLiteral("docs"), root);
    file(QStringLiteral("b"), docs, 300);
    file(QStringLiteral("a"), docs, 100);
    file(QStringLiteral("c"), root, 200);
    ManagedObject* unnamed = file(QString(), root, 50);
    unnamed->setValue(QStringLiteral("name"), QVariant());

    EXPECT_EQ(names(fetch(QStringLiteral("Folder"), QStringLiteral("parent == nil"))), QStringList{QStringLiteral("root")});
    EXPECT_EQ(names(fetch(QStringLiteral("Item"), QStringLiteral("parent == %@"), {docs},
                          {{QStringLiteral("name"), true, {}}})),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("size > 100 && size <= 300"), {},
                          {{QStringLiteral("size"), false, {}}})),
              (QStringList{QStringLiteral("b"), QStringLiteral("c")}));
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("name == %@ || name = 'c'"), {"a"},
                          {{QStringLiteral("name"), true, {}}})),
              (QStringList{QStringLiteral("a"), QStringLiteral("c")}));
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("NOT (name != 'a')"))), QStringList{QStringLiteral("a")});
    EXPECT_EQ(fetch(QStringLiteral("File"), QStringLiteral("name == nil")), std::vector<ManagedObject*>{unnamed});
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("parent.name == 'docs'"), {},
                          {{QStringLiteral("name"), true, {}}})),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
    // Ordering with "none" puts it first; ordering comparisons never match it.
    const auto sorted = fetch(QStringLiteral("File"), QStringLiteral("TRUEPREDICATE"), {},
                              {{QStringLiteral("name"), true, {}}});
    ASSERT_EQ(sorted.size(), 4u);
    EXPECT_EQ(sorted.front(), unnamed);
    EXPECT_EQ(fetch(QStringLiteral("File"), QStringLiteral("name < 'b'")).size(), 1u);
    // Sub-entities are included unless asked otherwise; limits apply after sorting.
    EXPECT_EQ(fetch(QStringLiteral("Item"), QStringLiteral("rank == 0")).size(), 6u);
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("size >= 100"), {},
                          {{QStringLiteral("size"), true, {}}}, 1)),
              QStringList{QStringLiteral("a")});
    FetchRequest foldersOnly;
    foldersOnly.entityName = QStringLiteral("Item");
    foldersOnly.includesSubentities = false;
    EXPECT_TRUE(context.execute(foldersOnly)->empty());
}

TEST_F(ObjectGraph, DeletedObjectsAreNotFetched)
{
    ManagedObject* a = file(QStringLiteral("a"));
    file(QStringLiteral("b"));
    context.deleteObject(a);
    EXPECT_EQ(names(fetch(QStringLiteral("File"), QStringLiteral("TRUEPREDICATE"))), QStringList{QStringLiteral("b")});
    EXPECT_EQ(context.objectWithId(a->objectId()), nullptr);
}

TEST_F(ObjectGraph, PredicatesCompareNumbersDatesAndTextByKind)
{
    ManagedObject* f = file(QStringLiteral("f"), nullptr, 7);
    const QDateTime when = QDateTime::fromMSecsSinceEpoch(1'600'000'000'000, Qt::UTC);
    f->setValue(QStringLiteral("modified"), when);
    f->setValue(QStringLiteral("hidden"), true);
    f->setValue(QStringLiteral("ratio"), 7.0);
    struct Case {
        const char* predicate;
        std::vector<PredicateArgument> arguments;
        bool matches;
    };
    const Case cases[] = {
        {"size == 7.0", {}, true},
        {"size == ratio", {}, true},
        {"size == '7'", {}, false},  // a number never equals a text
        {"hidden == YES", {}, true},
        {"hidden == 1", {}, true},
        {"hidden == NO", {}, false},
        {"modified == %@", {QVariant(when)}, true},
        {"modified < %@", {QVariant(when.addSecs(1))}, true},
        {"modified > %@", {QVariant(when)}, false},
        {"name >= 'f'", {}, true},
        {"name > 'F'", {}, true},  // ordinal: lower case after upper case
        {"tag == nil", {}, true},
        {"tag != nil", {}, false},
        {"SELF == %@", {f}, true},
        {"%K == 'f'", {"name"}, true},
        {"size > nil", {}, false},
        {"FALSEPREDICATE || name == \"f\"", {}, true},
    };
    for (const Case& c : cases) {
        Result<Predicate> predicate = Predicate::format(QString::fromUtf8(c.predicate), c.arguments);
        ASSERT_TRUE(predicate.ok()) << c.predicate;
        EXPECT_EQ(predicate->evaluate(*f), c.matches) << c.predicate;
    }
}

TEST_F(ObjectGraph, MalformedPredicatesAndUnknownKeysAreErrors)
{
    for (const char* text : {"name ==", "name 'x'", "(name == 'x'", "name == 'x", "name == %@", "name == 'x' &&",
                             "name ~ 'x'", "name == 1 extra"}) {
        Result<Predicate> predicate = Predicate::format(QString::fromUtf8(text));
        EXPECT_FALSE(predicate.ok()) << text;
        if (!predicate.ok()) {
            EXPECT_FALSE(predicate.error().reason.isEmpty()) << text;
        }
    }
    EXPECT_FALSE(Predicate::format(QStringLiteral("name == 'x'"), {"surplus"}).ok());

    FetchRequest request;
    request.entityName = QStringLiteral("File");
    request.predicate = Predicate::format(QStringLiteral("colour == 'red'")).value();
    Result<std::vector<ManagedObject*>> found = context.execute(request);
    ASSERT_FALSE(found.ok());
    EXPECT_TRUE(found.error().reason.contains(QStringLiteral("colour")));

    request.entityName = QStringLiteral("Nothing");
    EXPECT_FALSE(context.execute(request).ok());
}

TEST_F(ObjectGraph, InjectedFetchFailuresReachEveryFetchOfTheEntityAndItsSubEntities)
{
    file(QStringLiteral("a"));
    context.injectFetchFailure(QStringLiteral("Item"),
                               Error::make(Error::kFetchError, QStringLiteral("boom"), QStringLiteral("injected")));
    FetchRequest request;
    request.entityName = QStringLiteral("File");
    Result<std::vector<ManagedObject*>> found = context.execute(request);
    ASSERT_FALSE(found.ok());
    EXPECT_EQ(found.error().description, QStringLiteral("boom"));
    request.entityName = QStringLiteral("Tag");
    EXPECT_TRUE(context.execute(request).ok());
    context.clearInjectedFetchFailures();
    request.entityName = QStringLiteral("File");
    EXPECT_TRUE(context.execute(request).ok());
}

TEST_F(ObjectGraph, ChangeNotificationsCarryInsertedUpdatedAndDeletedObjects)
{
    ManagedObject* kept = file(QStringLiteral("kept"));
    ManagedObject* doomed = file(QStringLiteral("doomed"));
    context.processPendingChanges();

    std::vector<ObjectChanges> posted;
    QObject::connect(&context, &ManagedObjectContext::objectsDidChange,
                     [&](const ObjectChanges& changes) { posted.push_back(changes); });

    ManagedObject* fresh = file(QStringLiteral("fresh"));
    fresh->setValue(QStringLiteral("name"), QStringLiteral("fresher"));  // still just "inserted"
    ManagedObject* transient = file(QStringLiteral("transient"));
    context.deleteObject(transient);  // inserted and deleted: never seen
    kept->setValue(QStringLiteral("size"), 5);
    context.deleteObject(doomed);
    context.processPendingChanges();

    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].inserted, QList<ManagedObject*>{fresh});
    EXPECT_EQ(posted[0].updated, QList<ManagedObject*>{kept});
    EXPECT_EQ(posted[0].deleted, QList<ManagedObject*>{doomed});
    EXPECT_TRUE(posted[0].containsKindOf<File>());
    EXPECT_FALSE(posted[0].containsKindOf<Folder>());

    // Setting a value to what it already is changes nothing.
    kept->setValue(QStringLiteral("size"), 5);
    context.processPendingChanges();
    EXPECT_EQ(posted.size(), 1u);
    // ... but the same number as another type is a change (3 and 3.0 are
    // written differently in a query).
    kept->setValue(QStringLiteral("size"), 5.0);
    context.processPendingChanges();
    EXPECT_EQ(posted.size(), 2u);
}

TEST_F(ObjectGraph, WithAnEventLoopChangesArePostedOncePerTurn)
{
    context.setAutomaticallyProcessesPendingChanges(true);
    QSignalSpy spy(&context, &ManagedObjectContext::objectsDidChange);
    file(QStringLiteral("a"));
    file(QStringLiteral("b"));
    EXPECT_EQ(spy.count(), 0);
    QCoreApplication::processEvents();
    ASSERT_EQ(spy.count(), 1);
    EXPECT_EQ(spy.at(0).at(0).value<ObjectChanges>().inserted.size(), 2);
    QCoreApplication::processEvents();
    EXPECT_EQ(spy.count(), 1);
}

TEST_F(ObjectGraph, UndoRevertsOneTurnOfChangesAndRedoReappliesIt)
{
    ManagedObject* home = folder(QStringLiteral("home"));
    ManagedObject* a = file(QStringLiteral("a"), home, 1);
    context.processPendingChanges();  // closes the first undo group

    a->setValue(QStringLiteral("size"), 2);
    a->setValue(QStringLiteral("name"), QStringLiteral("renamed"));
    ManagedObject* b = file(QStringLiteral("b"), home);
    context.processPendingChanges();

    context.undo();
    EXPECT_EQ(a->value(QStringLiteral("size")), QVariant::fromValue<qint64>(1));
    EXPECT_EQ(a->value(QStringLiteral("name")), QVariant(QStringLiteral("a")));
    EXPECT_TRUE(b->isDeleted());
    EXPECT_EQ(home->objects(QStringLiteral("children")), std::vector<ManagedObject*>{a});

    context.redo();
    EXPECT_EQ(a->value(QStringLiteral("size")), QVariant(2));
    EXPECT_EQ(a->value(QStringLiteral("name")), QVariant(QStringLiteral("renamed")));
    EXPECT_FALSE(b->isDeleted());
    EXPECT_EQ(home->objects(QStringLiteral("children")), (std::vector<ManagedObject*>{a, b}));

    context.undo();
    context.undo();
    EXPECT_TRUE(a->isDeleted());
    EXPECT_TRUE(home->isDeleted());
    EXPECT_FALSE(context.undoManager().canUndo());
    EXPECT_TRUE(context.registeredObjects().empty());
}

TEST_F(ObjectGraph, UndoOfACascadingDeleteRestoresObjectsAndEveryLink)
{
    ManagedObject* root = folder(QStringLiteral("root"));
    ManagedObject* inner = folder(QStringLiteral("inner"), root);
    ManagedObject* deep = file(QStringLiteral("deep"), inner);
    ManagedObject* tag = context.insertNewObject(QStringLiteral("Tag"));
    deep->setObject(QStringLiteral("tag"), tag);
    context.processPendingChanges();

    std::vector<ObjectChanges> posted;
    QObject::connect(&context, &ManagedObjectContext::objectsDidChange,
                     [&](const ObjectChanges& changes) { posted.push_back(changes); });
    context.deleteObject(root);
    context.processPendingChanges();
    ASSERT_EQ(posted.size(), 1u);
    EXPECT_EQ(posted[0].deleted.size(), 3);

    context.undo();
    for (ManagedObject* back : {root, inner, deep}) {
        EXPECT_FALSE(back->isDeleted());
    }
    EXPECT_EQ(inner->object(QStringLiteral("parent")), root);
    EXPECT_EQ(deep->object(QStringLiteral("parent")), inner);
    EXPECT_EQ(deep->object(QStringLiteral("tag")), tag);
    EXPECT_EQ(tag->objects(QStringLiteral("files")), std::vector<ManagedObject*>{deep});
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_EQ(posted[1].inserted.size(), 3);

    context.redo();
    EXPECT_TRUE(deep->isDeleted());
    EXPECT_TRUE(tag->objects(QStringLiteral("files")).empty());
}

TEST_F(ObjectGraph, ChangesMadeWithUndoRegistrationOffCannotBeUndone)
{
    context.undoManager().disableUndoRegistration();
    context.undoManager().disableUndoRegistration();
    ManagedObject* a = file(QStringLiteral("a"));
    context.undoManager().enableUndoRegistration();
    a->setValue(QStringLiteral("size"), 10);  // still off: disabling nests
    context.undoManager().enableUndoRegistration();
    context.processPendingChanges();
    EXPECT_FALSE(context.undoManager().canUndo());

    a->setValue(QStringLiteral("size"), 20);
    context.undo();
    EXPECT_EQ(a->value(QStringLiteral("size")), QVariant(10));
    EXPECT_FALSE(a->isDeleted());
}

TEST_F(ObjectGraph, ExplicitUndoGroupsNestIntoOneStep)
{
    ManagedObject* a = file(QStringLiteral("a"));
    context.processPendingChanges();
    UndoManager& undo = context.undoManager();
    undo.beginUndoGrouping();
    a->setValue(QStringLiteral("size"), 1);
    undo.beginUndoGrouping();
    a->setValue(QStringLiteral("size"), 2);
    undo.endUndoGrouping();
    a->setValue(QStringLiteral("size"), 3);
    undo.endUndoGrouping();
    a->setValue(QStringLiteral("size"), 4);
    context.processPendingChanges();

    context.undo();
    EXPECT_EQ(a->value(QStringLiteral("size")), QVariant(3));
    context.undo();
    EXPECT_EQ(a->value(QStringLiteral("size")), QVariant::fromValue<qint64>(0));
    // A new change after undoing drops what could have been redone.
    a->setValue(QStringLiteral("size"), 9);
    context.processPendingChanges();
    EXPECT_FALSE(undo.canRedo());
    undo.removeAllActions();
    EXPECT_FALSE(undo.canUndo());
}

TEST_F(ObjectGraph, TheUndoObserverHearsOfCompletedGroupsUndoAndRedo)
{
    std::vector<UndoManager::Event> events;
    context.undoManager().setObserver([&](UndoManager::Event event) { events.push_back(event); });
    file(QStringLiteral("a"));
    context.processPendingChanges();
    context.undo();
    context.redo();
    EXPECT_EQ(events, (std::vector<UndoManager::Event>{UndoManager::Event::GroupClosed, UndoManager::Event::Undone,
                                                       UndoManager::Event::Redone}));
}

TEST(ObjectModel, InvalidModelsAreReported)
{
    auto build = [](std::vector<RelationshipDescription> aRelationships,
                    std::vector<RelationshipDescription> bRelationships, QString super = {}) {
        std::vector<EntityDescription> entities;
        entities.emplace_back(QStringLiteral("A"), std::move(super), false, nullptr,
                              std::vector<AttributeDescription>{}, std::move(aRelationships));
        entities.emplace_back(QStringLiteral("B"), QString(), false, nullptr, std::vector<AttributeDescription>{},
                              std::move(bRelationships));
        return ManagedObjectModel::create(QStringLiteral("bad"), std::move(entities));
    };
    const RelationshipDescription aToB{QStringLiteral("b"), QStringLiteral("B"), QStringLiteral("as"), false,
                                       DeleteRule::Nullify};
    const RelationshipDescription bToAs{QStringLiteral("as"), QStringLiteral("A"), QStringLiteral("b"), true,
                                        DeleteRule::Nullify};
    EXPECT_TRUE(build({aToB}, {bToAs}).ok());
    EXPECT_FALSE(build({aToB}, {}).ok()) << "missing inverse";
    EXPECT_FALSE(build({{QStringLiteral("b"), QStringLiteral("C"), QStringLiteral("as"), false, DeleteRule::Nullify}},
                       {bToAs})
                     .ok())
        << "unknown destination";
    EXPECT_FALSE(build({{QStringLiteral("b"), QStringLiteral("B"), QStringLiteral("as"), true, DeleteRule::Nullify}},
                       {bToAs})
                     .ok())
        << "many-to-many";
    EXPECT_FALSE(build({aToB}, {bToAs}, QStringLiteral("Z")).ok()) << "unknown super-entity";
}

}  // namespace
}  // namespace trovara::store::test
