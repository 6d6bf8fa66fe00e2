// Tests of the service profile loader: reading profile files, and finding the
// file of the calling application through the application and package
// managers (faked here; see profile_loader_device_test.cpp for the real ones).
#include <KvServiceProfileLoader.h>
#include <dlog-capture.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "fake_appfw.h"

using namespace DeviceAPI::KVP;

namespace {

// The loader's helpers, opened up for the tests.
class TestLoader : public KvServiceProfileLoader {
public:
    using KvServiceProfileLoader::getAppId;
    using KvServiceProfileLoader::getPackageFromAppId;
    using KvServiceProfileLoader::getServiceProfileLocation;
    using KvServiceProfileLoader::getServiceProfilePath;
    using KvServiceProfileLoader::parseXML;
};

// One logged line without its source prefix, with its priority.
typedef std::pair<int, std::string> Logged;

std::vector<Logged> logged(const DlogCapture& capture) {
    std::vector<Logged> result;
    for (const DlogLine& line : capture.lines()) {
        const size_t end = line.message.find(" > ");
        result.emplace_back(line.priority, line.message.substr(end + 3));
    }
    return result;
}

std::string pidText() { return std::to_string(getpid()); }

class ProfileLoaderTest : public testing::Test {
protected:
    void SetUp() override {
        FakeAppfw::reset();
        AppIdCacheSingleton::RenewForTests();
    }

    void TearDown() override {
        for (const std::string& path : files) {
            std::remove(path.c_str());
        }
        AppIdCacheSingleton::RenewForTests();
    }

    // Writes `content` to a new file and returns its path.
    std::string writeFile(const std::string& content) {
        std::string path = testing::TempDir() + "profile_loader_test_" + pidText() + "_" +
                           std::to_string(files.size()) + ".xml";
        std::ofstream(path) << content;
        files.push_back(path);
        return path;
    }

    // Parses a file of `content` with a new loader.
    KvAgentInitListPtr parse(const std::string& content) {
        return TestLoader().parseXML(writeFile(content));
    }

    // Parses one profile element of `content` and returns the only record.
    KvAgentInitPtr parseOne(const std::string& content) {
        KvAgentInitListPtr profiles = parse("<profiles>" + content + "</profiles>");
        EXPECT_EQ(profiles->size(), 1u);
        return profiles->empty() ? KvAgentInitPtr(new KvAgentInit()) : profiles->front();
    }

    std::vector<std::string> files;
};

void expectDefaults(const KvAgentInit& profile) {
    EXPECT_EQ(profile.id, "");
    EXPECT_EQ(profile.name, "");
    EXPECT_EQ(profile.role, KV_ROLE_CONSUMER);
    EXPECT_EQ(profile.serviceLimit, KV_SERVICE_LIMIT_ANY);
    EXPECT_EQ(profile.serviceTimeout, 30);
    EXPECT_TRUE(profile.channels.empty());
    EXPECT_TRUE(profile.transportTypes.empty());
}

void expectChannel(const KvChannel& channel, int id, KvDataRate dataRate, KvPriority priority,
                   KvReliability reliability) {
    EXPECT_EQ(channel.id, id);
    EXPECT_EQ(channel.dataRate, dataRate);
    EXPECT_EQ(channel.priority, priority);
    EXPECT_EQ(channel.reliability, reliability);
}

const char* const kExampleProfile = R"(<?xml version="1.0" encoding="UTF-8"?>
<resources>
  <application name="WatchSensor">
    <serviceProfile id="/sample/hello" name="HelloAccessory" role="provider"
                    serviceLimit="one_accessory" serviceTimeout="10">
      <supportedTransports>
        <transport type="transport_bt"/>
      </supportedTransports>
      <serviceChannel id="104" dataRate="low" priority="low" reliability="enable"/>
    </serviceProfile>
    <serviceProfile role="consumer"/>
  </application>
</resources>
)";

}  // namespace

// Reading profile files.

TEST_F(ProfileLoaderTest, ExampleFileYieldsTheTwoProfilesItDescribes) {
    KvAgentInitListPtr profiles = parse(kExampleProfile);
    ASSERT_EQ(profiles->size(), 2u);

    const KvAgentInit& first = *(*profiles)[0];
    EXPECT_EQ(first.id, "/sample/hello");
    EXPECT_EQ(first.name, "HelloAccessory");
    EXPECT_EQ(first.role, KV_ROLE_PROVIDER);
    EXPECT_EQ(first.serviceLimit, KV_SERVICE_LIMIT_ONE_ACCESSORY);
    EXPECT_EQ(first.serviceTimeout, 10);
    EXPECT_EQ(first.transportTypes, std::vector<KvTransportType>{KV_TRANSPORT_BT});
    ASSERT_EQ(first.channels.size(), 1u);
    expectChannel(first.channels[0], 104, KV_DATA_RATE_LOW, KV_PRIORITY_LOW, KV_RELIABILITY_ENABLE);

    expectDefaults(*(*profiles)[1]);
}

TEST_F(ProfileLoaderTest, ProfileWithoutAttributesGetsTheDefaults) {
    expectDefaults(*parseOne("<serviceProfile></serviceProfile>"));
}

TEST_F(ProfileLoaderTest, IdAndNameAreKeptAsWritten) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile id=" /My/Id " name="Mixed Case"/>)");
    EXPECT_EQ(profile->id, " /My/Id ");
    EXPECT_EQ(profile->name, "Mixed Case");
}

TEST_F(ProfileLoaderTest, ServiceTimeoutWithoutDigitsIsZero) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceTimeout="abc"/>)")->serviceTimeout, 0);
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceTimeout=""/>)")->serviceTimeout, 0);
}

TEST_F(ProfileLoaderTest, ServiceTimeoutStopsAtTheFirstNonDigit) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceTimeout="45s"/>)")->serviceTimeout, 45);
}

TEST_F(ProfileLoaderTest, ServiceTimeoutSkipsLeadingBlanks) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceTimeout="  12"/>)")->serviceTimeout, 12);
}

TEST_F(ProfileLoaderTest, ServiceTimeoutAboveTheRangeIsClamped) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceTimeout="70000"/>)")->serviceTimeout, 65535);
}

TEST_F(ProfileLoaderTest, ChannelIdAboveTheRangeIsClamped) {
    KvAgentInitPtr profile =
        parseOne(R"(<serviceProfile><serviceChannel id="99999"/></serviceProfile>)");
    ASSERT_EQ(profile->channels.size(), 1u);
    EXPECT_EQ(profile->channels[0].id, 65535);
}

TEST_F(ProfileLoaderTest, RoleProviderInAnyCaseIsProvider) {
    EXPECT_EQ(parseOne(R"(<serviceProfile role="PROVIDER"/>)")->role, KV_ROLE_PROVIDER);
    EXPECT_EQ(parseOne(R"(<serviceProfile role="Provider"/>)")->role, KV_ROLE_PROVIDER);
}

TEST_F(ProfileLoaderTest, RoleOtherThanProviderIsConsumer) {
    EXPECT_EQ(parseOne(R"(<serviceProfile role="consumer"/>)")->role, KV_ROLE_CONSUMER);
    EXPECT_EQ(parseOne(R"(<serviceProfile role="server"/>)")->role, KV_ROLE_CONSUMER);
    EXPECT_EQ(parseOne(R"(<serviceProfile role=" provider"/>)")->role, KV_ROLE_CONSUMER);
}

TEST_F(ProfileLoaderTest, ServiceLimitWordsInAnyCase) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceLimit="ONE_PEERAGENT"/>)")->serviceLimit,
              KV_SERVICE_LIMIT_ONE_PEERAGENT);
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceLimit="one_accessory"/>)")->serviceLimit,
              KV_SERVICE_LIMIT_ONE_ACCESSORY);
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceLimit="Any"/>)")->serviceLimit,
              KV_SERVICE_LIMIT_ANY);
}

TEST_F(ProfileLoaderTest, UnknownServiceLimitIsAny) {
    EXPECT_EQ(parseOne(R"(<serviceProfile serviceLimit="two"/>)")->serviceLimit,
              KV_SERVICE_LIMIT_ANY);
}

TEST_F(ProfileLoaderTest, UnknownProfileAttributesAreIgnored) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile version="2" ID="x" Role="provider"/>)");
    expectDefaults(*profile);
}

TEST_F(ProfileLoaderTest, ChannelWithIdZeroIsNotStored) {
    KvAgentInitPtr profile =
        parseOne(R"(<serviceProfile><serviceChannel id="0" dataRate="low"/></serviceProfile>)");
    EXPECT_TRUE(profile->channels.empty());
}

TEST_F(ProfileLoaderTest, ChannelWithoutIdIsNotStored) {
    KvAgentInitPtr profile = parseOne(
        R"(<serviceProfile><serviceChannel priority="low" reliability="disable"/></serviceProfile>)");
    EXPECT_TRUE(profile->channels.empty());
}

TEST_F(ProfileLoaderTest, ChannelWithoutAttributesIsNotStored) {
    KvAgentInitPtr profile = parseOne("<serviceProfile><serviceChannel/></serviceProfile>");
    EXPECT_TRUE(profile->channels.empty());
}

TEST_F(ProfileLoaderTest, ChannelWithOnlyAnIdGetsTheDefaults) {
    KvAgentInitPtr profile =
        parseOne(R"(<serviceProfile><serviceChannel id="7"/></serviceProfile>)");
    ASSERT_EQ(profile->channels.size(), 1u);
    expectChannel(profile->channels[0], 7, KV_DATA_RATE_HIGH, KV_PRIORITY_HIGH,
                  KV_RELIABILITY_ENABLE);
}

TEST_F(ProfileLoaderTest, ChannelWordsAreReadInAnyCase) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <serviceChannel id="1" dataRate="LOW" priority="Medium" reliability="DISABLE"/>
        <serviceChannel id="2" dataRate="high" priority="low" reliability="enable"/>
        </serviceProfile>)");
    ASSERT_EQ(profile->channels.size(), 2u);
    expectChannel(profile->channels[0], 1, KV_DATA_RATE_LOW, KV_PRIORITY_MEDIUM,
                  KV_RELIABILITY_DISABLE);
    expectChannel(profile->channels[1], 2, KV_DATA_RATE_HIGH, KV_PRIORITY_LOW,
                  KV_RELIABILITY_ENABLE);
}

TEST_F(ProfileLoaderTest, UnknownChannelWordsLeaveTheFieldsAlone) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <serviceChannel id="3" dataRate="fast" priority="urgent" reliability="maybe" qos="1"/>
        </serviceProfile>)");
    ASSERT_EQ(profile->channels.size(), 1u);
    expectChannel(profile->channels[0], 3, KV_DATA_RATE_HIGH, KV_PRIORITY_HIGH,
                  KV_RELIABILITY_ENABLE);
}

TEST_F(ProfileLoaderTest, ChannelsKeepDocumentOrder) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <serviceChannel id="30"/><serviceChannel id="10"/><serviceChannel id="20"/>
        </serviceProfile>)");
    ASSERT_EQ(profile->channels.size(), 3u);
    EXPECT_EQ(profile->channels[0].id, 30);
    EXPECT_EQ(profile->channels[1].id, 10);
    EXPECT_EQ(profile->channels[2].id, 20);
}

TEST_F(ProfileLoaderTest, EveryTransportWordInAnyCase) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <transport type="transport_wifi"/><transport type="TRANSPORT_BT"/>
        <transport type="Transport_Ble"/><transport type="transport_usb"/>
        </serviceProfile>)");
    EXPECT_EQ(profile->transportTypes,
              (std::vector<KvTransportType>{KV_TRANSPORT_WIFI, KV_TRANSPORT_BT, KV_TRANSPORT_BLE,
                                            KV_TRANSPORT_USB}));
}

TEST_F(ProfileLoaderTest, UnknownTransportAddsNothing) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <transport type="transport_nfc"/><transport kind="transport_bt"/><transport/>
        </serviceProfile>)");
    EXPECT_TRUE(profile->transportTypes.empty());
}

TEST_F(ProfileLoaderTest, RepeatedTransportIsAddedTwice) {
    KvAgentInitPtr profile = parseOne(R"(<serviceProfile>
        <transport type="transport_ble"/><transport type="transport_ble"/>
        </serviceProfile>)");
    EXPECT_EQ(profile->transportTypes,
              (std::vector<KvTransportType>{KV_TRANSPORT_BLE, KV_TRANSPORT_BLE}));
}

TEST_F(ProfileLoaderTest, ChannelsAndTransportsOutsideAProfileAreIgnored) {
    KvAgentInitListPtr profiles = parse(R"(<profiles>
        <serviceChannel id="5"/><transport type="transport_bt"/>
        <serviceProfile id="a"><serviceChannel id="6"/></serviceProfile>
        <serviceChannel id="7"/><transport type="transport_usb"/>
        </profiles>)");
    ASSERT_EQ(profiles->size(), 1u);
    const KvAgentInit& profile = *profiles->front();
    ASSERT_EQ(profile.channels.size(), 1u);
    EXPECT_EQ(profile.channels[0].id, 6);
    EXPECT_TRUE(profile.transportTypes.empty());
}

TEST_F(ProfileLoaderTest, ProfileOpenedInsideAnotherReplacesIt) {
    KvAgentInitListPtr profiles = parse(R"(<profiles>
        <serviceProfile id="outer"><serviceChannel id="1"/>
          <serviceProfile id="inner"><serviceChannel id="2"/></serviceProfile>
          <serviceChannel id="3"/>
        </serviceProfile>
        </profiles>)");
    ASSERT_EQ(profiles->size(), 1u);
    const KvAgentInit& profile = *profiles->front();
    EXPECT_EQ(profile.id, "inner");
    ASSERT_EQ(profile.channels.size(), 1u);
    EXPECT_EQ(profile.channels[0].id, 2);
}

TEST_F(ProfileLoaderTest, ElementNamesAreCaseSensitive) {
    KvAgentInitListPtr profiles = parse(R"(<profiles>
        <ServiceProfile id="a"></ServiceProfile>
        <serviceprofile id="b"></serviceprofile>
        <serviceProfile id="c"><ServiceChannel id="4"/><Transport type="transport_bt"/>
        </serviceProfile>
        </profiles>)");
    ASSERT_EQ(profiles->size(), 1u);
    EXPECT_EQ(profiles->front()->id, "c");
    EXPECT_TRUE(profiles->front()->channels.empty());
    EXPECT_TRUE(profiles->front()->transportTypes.empty());
}

TEST_F(ProfileLoaderTest, TextCommentsAndOtherMarkupAreSkipped) {
    KvAgentInitListPtr profiles = parse(R"(<?xml version="1.0"?>
        <!-- a comment --><?app-hint value?>
        <root>text<serviceProfile id="a">more text<!-- serviceProfile -->
        <![CDATA[<serviceChannel id="9"/>]]><serviceChannel id="8"/></serviceProfile></root>)");
    ASSERT_EQ(profiles->size(), 1u);
    ASSERT_EQ(profiles->front()->channels.size(), 1u);
    EXPECT_EQ(profiles->front()->channels[0].id, 8);
}

TEST_F(ProfileLoaderTest, FileWithoutProfilesGivesAnEmptyList) {
    KvAgentInitListPtr profiles = parse("<resources/>");
    ASSERT_TRUE(profiles);
    EXPECT_TRUE(profiles->empty());
}

TEST_F(ProfileLoaderTest, FileBrokenAfterTheFirstProfileKeepsThatProfile) {
    DlogCapture capture;
    KvAgentInitListPtr profiles = parse(R"(<profiles>
        <serviceProfile id="closed"/>
        <serviceProfile id="open"><serviceChannel id="1"/>)");
    ASSERT_EQ(profiles->size(), 1u);
    EXPECT_EQ(profiles->front()->id, "closed");
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Failed to open xml file."}}));
}

TEST_F(ProfileLoaderTest, MissingFileGivesAnEmptyListAndAnError) {
    DlogCapture capture;
    KvAgentInitListPtr profiles = TestLoader().parseXML(testing::TempDir() + "no-such-file.xml");
    ASSERT_TRUE(profiles);
    EXPECT_TRUE(profiles->empty());
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Failed to open xml file."}}));
}

TEST_F(ProfileLoaderTest, EveryParseMakesANewList) {
    TestLoader loader;
    const std::string path = writeFile(kExampleProfile);
    KvAgentInitListPtr first = loader.parseXML(path);
    KvAgentInitListPtr second = loader.parseXML(path);
    EXPECT_NE(first, second);
    EXPECT_EQ(second->size(), 2u);
}

// The application id.

TEST_F(ProfileLoaderTest, AppIdComesFromTheAppManagerForThisProcess) {
    FakeAppfw::setAppId("org.example.sensor");
    EXPECT_EQ(TestLoader().getAppId(), "org.example.sensor");
    EXPECT_EQ(FakeAppfw::calls(),
              std::vector<std::string>{"app_manager_get_app_id(" + pidText() + ")"});
}

TEST_F(ProfileLoaderTest, AppIdIsCachedForTheWholeProcess) {
    FakeAppfw::setAppId("org.example.first");
    EXPECT_EQ(TestLoader().getAppId(), "org.example.first");
    FakeAppfw::setAppId("org.example.second");
    TestLoader other;
    EXPECT_EQ(other.getAppId(), "org.example.first");
    EXPECT_EQ(other.getAppId(), "org.example.first");
    EXPECT_EQ(FakeAppfw::calls().size(), 1u);
}

TEST_F(ProfileLoaderTest, FailedAppIdIsLoggedAndNotCached) {
    DlogCapture capture;
    FakeAppfw::setAppId("org.example.app", -1);
    TestLoader loader;
    EXPECT_EQ(loader.getAppId(), "");
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to get appid"}}));

    FakeAppfw::setAppId("org.example.app", 0);
    EXPECT_EQ(loader.getAppId(), "org.example.app");
    EXPECT_EQ(FakeAppfw::calls().size(), 2u);
}

TEST_F(ProfileLoaderTest, LogLinesCarryTheSourcePrefixAndTag) {
    DlogCapture capture;
    FakeAppfw::setAppId("", -1);
    TestLoader().getAppId();
    const std::vector<DlogLine> lines = capture.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].tag, "WRT_PLUGINS/TIZEN");
    EXPECT_TRUE(std::regex_match(
        lines[0].message,
        std::regex(R"(KvServiceProfileLoader\.cpp: getAppId\(\d+\) > Fail to get appid)")))
        << lines[0].message;
}

// The package of the application.

TEST_F(ProfileLoaderTest, PackageComesFromTheAppInformation) {
    DlogCapture capture;
    FakeAppfw::setPackage("sensor01");
    EXPECT_EQ(TestLoader().getPackageFromAppId("sensor01.Sensor"), "sensor01");
    EXPECT_EQ(FakeAppfw::calls(), (std::vector<std::string>{
                                      "app_manager_get_app_info(sensor01.Sensor)",
                                      "app_info_get_package(handle)", "app_info_destroy(handle)"}));
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(ProfileLoaderTest, MissingAppInformationGivesNoPackage) {
    DlogCapture capture;
    FakeAppfw::setAppInfoResult(-5);
    EXPECT_EQ(TestLoader().getPackageFromAppId("org.example.app"), "");
    EXPECT_EQ(FakeAppfw::calls(),
              std::vector<std::string>{"app_manager_get_app_info(org.example.app)"});
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to get appinfo"}}));
}

TEST_F(ProfileLoaderTest, MissingPackageNameGivesNoPackageButReleasesTheInformation) {
    DlogCapture capture;
    FakeAppfw::setPackage("example", -22);
    EXPECT_EQ(TestLoader().getPackageFromAppId("org.example.app"), "");
    EXPECT_EQ(FakeAppfw::calls(), (std::vector<std::string>{
                                      "app_manager_get_app_info(org.example.app)",
                                      "app_info_get_package(handle)", "app_info_destroy(handle)"}));
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to get pkgName"}}));
}

TEST_F(ProfileLoaderTest, FailedReleaseOfTheInformationDiscardsThePackage) {
    DlogCapture capture;
    FakeAppfw::setPackage("example");
    FakeAppfw::setAppInfoDestroyResult(-22);
    EXPECT_EQ(TestLoader().getPackageFromAppId("org.example.app"), "");
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to destroy appinfo"}}));
}

TEST_F(ProfileLoaderTest, PositiveResultsOfTheAppManagerCountAsSuccess) {
    FakeAppfw::setAppInfoResult(1);
    FakeAppfw::setPackage("example", 1);
    FakeAppfw::setAppInfoDestroyResult(1);
    EXPECT_EQ(TestLoader().getPackageFromAppId("org.example.app"), "example");
}

// The location of the profile in the package.

TEST_F(ProfileLoaderTest, LocationIsTheValueOfTheMetadataKey) {
    FakeAppfw::setMetadata(
        {{"http://example.org/other", "x"}, {"AccessoryServicesLocation", "res/xml/services.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "res/xml/services.xml");
    EXPECT_EQ(FakeAppfw::calls(),
              (std::vector<std::string>{"app_manager_get_app_id(" + pidText() + ")",
                                        "pkgmgrinfo_appinfo_get_appinfo(org.example.app)",
                                        "pkgmgrinfo_appinfo_foreach_metadata(handle)",
                                        "pkgmgrinfo_appinfo_destroy_appinfo(handle)"}));
}

TEST_F(ProfileLoaderTest, LaterMetadataEntryWinsAndTheWalkCoversEveryEntry) {
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "first.xml"},
                            {"AccessoryServicesLocation", "second.xml"},
                            {"other", "y"}});
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "second.xml");
    EXPECT_EQ(FakeAppfw::metadataCallbackResults(), (std::vector<int>{0, 0, 0}));
}

TEST_F(ProfileLoaderTest, MetadataWithNullKeyOrValueIsIgnored) {
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "kept.xml"},
                            {"AccessoryServicesLocation", std::nullopt},
                            {std::nullopt, "lost.xml"},
                            {std::nullopt, std::nullopt}});
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "kept.xml");
    EXPECT_EQ(FakeAppfw::metadataCallbackResults(), (std::vector<int>{0, 0, 0, 0}));
}

TEST_F(ProfileLoaderTest, MetadataKeyIsMatchedExactly) {
    FakeAppfw::setMetadata(
        {{"accessoryserviceslocation", "a.xml"}, {"AccessoryServicesLocation ", "b.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "");
}

TEST_F(ProfileLoaderTest, NoLocationWithoutTheMetadataKey) {
    DlogCapture capture;
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "");
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(ProfileLoaderTest, NoLocationWithoutPackageInformationAndNoLog) {
    DlogCapture capture;
    FakeAppfw::setPackageInfoResult(-1);
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "a.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "");
    EXPECT_EQ(FakeAppfw::calls(),
              (std::vector<std::string>{"app_manager_get_app_id(" + pidText() + ")",
                                        "pkgmgrinfo_appinfo_get_appinfo(org.example.app)"}));
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(ProfileLoaderTest, NoLocationWithoutAnAppId) {
    DlogCapture capture;
    FakeAppfw::setAppId("", -1);
    EXPECT_EQ(TestLoader().getServiceProfileLocation(), "");
    EXPECT_EQ(FakeAppfw::calls(),
              std::vector<std::string>{"app_manager_get_app_id(" + pidText() + ")"});
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to get appid"}}));
}

// The path of the profile file.

TEST_F(ProfileLoaderTest, PathIsTheLocationInThePackageWebFolder) {
    FakeAppfw::setPackage("sensor01");
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "res/xml/services.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfilePath(),
              "/opt/usr/apps/sensor01/res/wgt/res/xml/services.xml");
}

TEST_F(ProfileLoaderTest, EmptyPackageGivesADoubledSlash) {
    FakeAppfw::setAppInfoResult(-1);
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "services.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfilePath(), "/opt/usr/apps//res/wgt/services.xml");
}

TEST_F(ProfileLoaderTest, AbsoluteLocationGivesADoubledSlash) {
    FakeAppfw::setPackage("sensor01");
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "/services.xml"}});
    EXPECT_EQ(TestLoader().getServiceProfilePath(), "/opt/usr/apps/sensor01/res/wgt//services.xml");
}

TEST_F(ProfileLoaderTest, NoPathWithoutALocation) {
    EXPECT_EQ(TestLoader().getServiceProfilePath(), "");
    for (const std::string& call : FakeAppfw::calls()) {
        EXPECT_EQ(call.find("app_manager_get_app_info"), std::string::npos) << call;
    }
}

// Reading the profiles of the calling application.

TEST_F(ProfileLoaderTest, WithoutAnAppIdTheListIsEmptyAndThePathIsWrong) {
    DlogCapture capture;
    FakeAppfw::setAppId("", -1);
    KvServiceProfileLoader loader;
    KvAgentInitListPtr profiles = loader.getKvAgentInits();
    ASSERT_TRUE(profiles);
    EXPECT_TRUE(profiles->empty());
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Fail to get appid"},
                                                    {DLOG_ERROR, "xmlPath is wrong!"}}));
}

TEST_F(ProfileLoaderTest, AFailedLoaderDoesNotTryAgain) {
    DlogCapture capture;
    KvServiceProfileLoader loader;
    EXPECT_TRUE(loader.getKvAgentInits()->empty());
    const size_t callsAfterFirst = FakeAppfw::calls().size();
    KvAgentInitListPtr again = loader.getKvAgentInits();
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->empty());
    EXPECT_EQ(FakeAppfw::calls().size(), callsAfterFirst);
    EXPECT_EQ(capture.count("xmlPath is wrong!"), 1u);
}

TEST_F(ProfileLoaderTest, UnreadableProfileIsReadOnceAndGivesTheSameList) {
    DlogCapture capture;
    FakeAppfw::setPackage("kv-missing-package");
    FakeAppfw::setMetadata({{"AccessoryServicesLocation", "services.xml"}});
    KvServiceProfileLoader loader;
    KvAgentInitListPtr first = loader.getKvAgentInits();
    KvAgentInitListPtr second = loader.getKvAgentInits();
    ASSERT_TRUE(first);
    EXPECT_TRUE(first->empty());
    EXPECT_EQ(first, second);
    EXPECT_EQ(logged(capture), (std::vector<Logged>{{DLOG_ERROR, "Failed to open xml file."}}));
}

TEST_F(ProfileLoaderTest, RecordsOutliveTheLoader) {
    KvAgentInitListPtr profiles;
    {
        TestLoader loader;
        profiles = loader.parseXML(writeFile(kExampleProfile));
    }
    ASSERT_EQ(profiles->size(), 2u);
    EXPECT_EQ((*profiles)[0]->name, "HelloAccessory");
}
