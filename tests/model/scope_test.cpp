// Places to search and to leave out: scopes, their labels and order, the
// ordered lists of a document, and the preferred locations with their
// archived forms.
#include "common/paths.h"
#include "model/defaults.h"
#include "model/document_model.h"
#include "model/platform.h"
#include "model/preferred_location.h"
#include "model/scope.h"

#include <QDataStream>
#include <QDir>

#include <gtest/gtest.h>

namespace trovara::model {
namespace {

class Scopes : public ::testing::Test {
protected:
    Scopes()
        : context(makeDocumentContext())
        , c(*context)
    {
    }
    ~Scopes() override { platform::setStartupVolumeNameProviderForTesting({}); }

    std::unique_ptr<store::ManagedObjectContext> context;
    store::ManagedObjectContext& c;
};

TEST_F(Scopes, AFolderInsideHomeIsTheSameScopeByFullPathOrWithATilde)
{
    Scope* byTilde = Scope::scopeWithPath(QStringLiteral("~/Documents/"), c);
    Scope* byPath = Scope::scopeWithPath(QDir::homePath() + QStringLiteral("/Documents/"), c);
    EXPECT_EQ(byTilde, byPath);
    EXPECT_EQ(byTilde->path(), QStringLiteral("~/Documents/"));
    EXPECT_FALSE(byTilde->isConstant());
    EXPECT_NE(Scope::scopeWithPath(QStringLiteral("/tmp"), c), byTilde);
    EXPECT_EQ(Scope::availableScopesInContext(c).size(), 2u);
}

TEST_F(Scopes, LabelsNameConstantsTheStartupVolumeOrThePath)
{
    auto constant = [&](const char* value) {
        Scope* scope = Scope::scopeWithPath(QString::fromLatin1(value), c);
        scope->setIsConstant(true);
        return scope->label();
    };
    EXPECT_EQ(constant(platform::kUserHomeScope), QStringLiteral(" - User home folder"));
    EXPECT_EQ(constant(platform::kLocalComputerScope), QStringLiteral(" - Local volumes + user home"));
    EXPECT_EQ(constant(platform::kNetworkScope), QStringLiteral(" - User-mounted remote volumes"));

    platform::setStartupVolumeNameProviderForTesting([] { return QStringLiteral("Debian Root"); });
    EXPECT_EQ(Scope::scopeWithPath(QStringLiteral("/"), c)->label(), QStringLiteral("Debian Root"));
    EXPECT_EQ(Scope::scopeWithPath(QDir::homePath() + QStringLiteral("/Music"), c)->label(), QStringLiteral("~/Music"));

    auto other = makeDocumentContext();
    platform::setStartupVolumeNameProviderForTesting([] { return QString(); });
    EXPECT_EQ(Scope::scopeWithPath(QStringLiteral("/"), *other)->label(), QStringLiteral("/"));
}

TEST_F(Scopes, ListingPutsConstantsFirstThenFoldersByPath)
{
    for (const char* path : {"/srv", "~/b", platform::kNetworkScope, "/etc", platform::kUserHomeScope}) {
        Scope* scope = Scope::scopeWithPath(QString::fromLatin1(path), c);
        scope->setIsConstant(QByteArray(path).startsWith("kMD"));
    }
    QStringList all;
    for (Scope* scope : Scope::availableScopesInContext(c)) {
        all << scope->path();
    }
    EXPECT_EQ(all, QStringList({"kMDQueryScopeHome", "kMDQueryScopeNetwork", "/etc", "/srv", "~/b"}));
    QStringList folders;
    for (Scope* scope : Scope::nonConstantScopesInContext(c)) {
        folders << scope->path();
    }
    EXPECT_EQ(folders, QStringList({"/etc", "/srv", "~/b"}));
}

TEST_F(Scopes, OrderedEntriesGoOnePastTheLast)
{
    Scope* scope = Scope::scopeWithPath(QStringLiteral("/data"), c);
    EXPECT_EQ(OrderedScope::createOrderedScopeWith(scope)->sortIndexValue(), 0);
    EXPECT_EQ(OrderedScope::createOrderedScopeWith(scope)->sortIndexValue(), 1);
    OrderedScope::createOrderedScopeWith(scope)->setSortIndexValue(5);
    EXPECT_EQ(OrderedScope::createOrderedScopeWith(scope)->sortIndexValue(), 6);
    EXPECT_EQ(OrderedExclusionScope::createOrderedExclusionScopeWith(scope)->sortIndexValue(), 0);
    EXPECT_EQ(OrderedExclusionScope::createOrderedExclusionScopeWith(scope)->sortIndexValue(), 1);
    EXPECT_EQ(OrderedScope::orderedScopes(c).size(), 4u);
    EXPECT_EQ(OrderedExclusionScope::orderedExclusionScopes(c).size(), 2u);
    EXPECT_EQ(OrderedScope::orderedScopes(c).back()->scope(), scope);
    // Ordered entries go with their scope.
    c.deleteObject(scope);
    EXPECT_TRUE(OrderedScope::orderedScopes(c).empty());
    EXPECT_TRUE(OrderedExclusionScope::orderedExclusionScopes(c).empty());
}

TEST_F(Scopes, FailedFetchesArePresentedOrLogged)
{
    Scope::scopeWithPath(QStringLiteral("/data"), c);
    c.injectFetchFailure(QStringLiteral("Scope"), Error::make(Error::kFetchError, QStringLiteral("broken")));
    EXPECT_TRUE(Scope::availableScopesInContext(c).empty());
    EXPECT_EQ(Scope::scopeWithPath(QStringLiteral("/data"), c), nullptr);
    c.injectFetchFailure(QStringLiteral("OrderedScope"), Error::make(Error::kFetchError, QStringLiteral("broken")));
    bool ok = true;
    EXPECT_TRUE(OrderedScope::orderedScopes(c, &ok).empty());
    EXPECT_FALSE(ok);
}

TEST(Paths, TildeAbbreviationAndExpansion)
{
    const QString home = QDir::homePath();
    EXPECT_EQ(abbreviateWithTilde(home), QStringLiteral("~"));
    EXPECT_EQ(abbreviateWithTilde(home + QStringLiteral("/a/b/")), QStringLiteral("~/a/b/"));
    EXPECT_EQ(abbreviateWithTilde(home + QStringLiteral("x")), home + QStringLiteral("x"));
    EXPECT_EQ(abbreviateWithTilde(QStringLiteral("/etc")), QStringLiteral("/etc"));
    EXPECT_EQ(expandTilde(QStringLiteral("~")), home);
    EXPECT_EQ(expandTilde(QStringLiteral("~/Documents/")), home + QStringLiteral("/Documents/"));
    EXPECT_EQ(expandTilde(QStringLiteral("~root/x")), QStringLiteral("/root/x"));
    EXPECT_EQ(expandTilde(QStringLiteral("~no-such-user-here/x")), QStringLiteral("~no-such-user-here/x"));
    EXPECT_EQ(expandTilde(QStringLiteral("/a/~")), QStringLiteral("/a/~"));
}

TEST(PreferredLocations, TheFactoryListSearchesHomeByDefault)
{
    const auto locations = PreferredLocation::factoryLocations();
    ASSERT_EQ(locations.size(), 7u);
    QStringList summary;
    for (const PreferredLocation& location : locations) {
        summary << QStringLiteral("%1 %2%3%4").arg(location.path()).arg(location.isConstant()).arg(location.isDefault())
                       .arg(location.isFactoryDefault());
    }
    EXPECT_EQ(summary, QStringList({"kMDQueryScopeHome 111", "kMDQueryScopeComputer 101", "kMDQueryScopeNetwork 101",
                                    "/ 001", "~/Documents/ 001", "/home/ 001", "/usr/share/applications/ 001"}));
    EXPECT_EQ(locations[0].label(), QStringLiteral(" - User home folder"));
    EXPECT_EQ(locations[4].label(), QStringLiteral("~/Documents/"));
    // A constant's value is labelled as the constant whatever the flag says.
    EXPECT_EQ(PreferredLocation(QStringLiteral("kMDQueryScopeNetwork"), false, false).label(),
              QStringLiteral(" - User-mounted remote volumes"));
    EXPECT_FALSE(PreferredLocation(QStringLiteral("/x"), false, true).isFactoryDefault());
}

TEST(PreferredLocations, ArchivesRoundTripAndDamagedOnesAreRefused)
{
    auto locations = PreferredLocation::factoryLocations();
    locations.push_back(PreferredLocation(QStringLiteral("/srv/ünïcode"), false, true));
    Result<std::vector<PreferredLocation>> back = PreferredLocation::unarchive(PreferredLocation::archive(locations));
    ASSERT_TRUE(back.ok());
    EXPECT_EQ(back.value(), locations);

    for (const PreferredLocation& location : locations) {
        EXPECT_EQ(PreferredLocation::fromKeyedArchive(location.toKeyedArchive()), location);
    }
    const QVariantMap keyed = locations[0].toKeyedArchive();
    EXPECT_EQ(keyed.keys(), QStringList({"isConstant", "isDefault", "isFactoryDefault", "path"}));

    // The sequential form is the path followed by the three flags.
    QByteArray one;
    {
        QDataStream stream(&one, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_6_0);
        locations[1].encode(stream);
    }
    QDataStream in(one);
    in.setVersion(QDataStream::Qt_6_0);
    QString path;
    bool constant = false;
    bool isDefault = true;
    bool factory = false;
    in >> path >> constant >> isDefault >> factory;
    EXPECT_EQ(path, QStringLiteral("kMDQueryScopeComputer"));
    EXPECT_TRUE(constant);
    EXPECT_FALSE(isDefault);
    EXPECT_TRUE(factory);

    const QByteArray good = PreferredLocation::archive(locations);
    EXPECT_FALSE(PreferredLocation::unarchive(QByteArray()).ok());
    EXPECT_FALSE(PreferredLocation::unarchive(good.left(good.size() - 3)).ok());
    EXPECT_FALSE(PreferredLocation::unarchive(QByteArray("not an archive at all")).ok());
    QByteArray newer = good;
    newer[7] = 9;  // version field
    Result<std::vector<PreferredLocation>> refused = PreferredLocation::unarchive(newer);
    ASSERT_FALSE(refused.ok());
    EXPECT_TRUE(refused.error().reason.contains(QStringLiteral("newer")));

    std::vector<PreferredLocation> sorted = locations;
    PreferredLocation::sortByLabel(sorted);
    EXPECT_EQ(sorted.front().path(), QStringLiteral("kMDQueryScopeComputer"));  // " - Local…" sorts first
}

TEST(PreferredLocations, AreRegisteredAsAUserDefault)
{
    Defaults defaults(QDir::homePath() + QStringLiteral("/defaults-test.conf"));
    defaults.registerDefaults(Defaults::factoryDefaults());
    Result<std::vector<PreferredLocation>> registered =
        PreferredLocation::unarchive(defaults.value(QStringLiteral("preferredLocations")).toByteArray());
    ASSERT_TRUE(registered.ok());
    EXPECT_EQ(registered.value(), PreferredLocation::factoryLocations());
    EXPECT_FALSE(defaults.hasUserValue(QStringLiteral("preferredLocations")));
    EXPECT_EQ(defaults.doubleValue(QStringLiteral("resultTableRowHeight")), 17.0);
    EXPECT_TRUE(defaults.boolValue(QStringLiteral("showResultsImmediately")));
    EXPECT_FALSE(defaults.boolValue(QStringLiteral("includeInvisibleFiles")));
    EXPECT_EQ(defaults.value(QStringLiteral("bringToFrontAndCreateHotKey")).toMap().value(QStringLiteral("modifiers")),
              QVariant(6400));
    defaults.setValue(QStringLiteral("includeInvisibleFiles"), true);
    EXPECT_TRUE(defaults.boolValue(QStringLiteral("includeInvisibleFiles")));
    defaults.removeValue(QStringLiteral("includeInvisibleFiles"));
    EXPECT_FALSE(defaults.boolValue(QStringLiteral("includeInvisibleFiles")));
    EXPECT_FALSE(defaults.value(QStringLiteral("blitzSearchHotKey")).isValid());
}

}  // namespace
}  // namespace trovara::model
