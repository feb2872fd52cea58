#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/ConfigId.h"

namespace orv {
namespace {

using Id = std::optional<std::string>;

TEST(ConfigIdTest, takesBothSeparatorsWithBlanksAround) {
    EXPECT_EQ(configId("id=1", {"id"}), Id("1"));
    EXPECT_EQ(configId("id :\t2 ", {"id"}), Id("2"));
    EXPECT_EQ(configId("  id = 3\r\n", {"id"}), Id("3"));
    EXPECT_EQ(configId("id 4", {"id"}), std::nullopt);
    EXPECT_EQ(configId("idx=5", {"id"}), std::nullopt);
    EXPECT_EQ(configId("enc_id=6", {"id"}), std::nullopt);
}

TEST(ConfigIdTest, removesQuotesAndTheClosingSemicolon) {
    EXPECT_EQ(configId("id = '12 3'", {"id"}), Id("12 3"));
    EXPECT_EQ(configId("id = \"123\";", {"id"}), Id("123"));
    EXPECT_EQ(configId("id = 123;", {"id"}), Id("123"));
    EXPECT_EQ(configId("    \"client_id\" = 123;", {"client_id"}), Id("123"));
    EXPECT_EQ(configId("id = '12", {"id"}), Id("'12"));
}

TEST(ConfigIdTest, triesTheKeysInTheirOrder) {
    EXPECT_EQ(configId("b=1\na=2", {"a", "b"}), Id("2"));
    EXPECT_EQ(configId("b=1\na=", {"a", "b"}), Id("1"));
    EXPECT_EQ(configId("a=\na=2", {"a"}), Id("2"));
    EXPECT_EQ(configId("a=''", {"a"}), std::nullopt);
}

TEST(ConfigIdTest, findsNothingInNothing) {
    EXPECT_EQ(configId("", {"id"}), std::nullopt);
    EXPECT_EQ(configId(std::string("\0\xff\n=", 4), {"id"}), std::nullopt);
}

TEST(AnyDeskIdTest, prefersTheNetworksIdentifier) {
    EXPECT_EQ(anyDeskId("client_id=7\nad.anynet.id=123456789\n"), Id("123456789"));
    EXPECT_EQ(anyDeskId("client-id=8\nclient_id=7\n"), Id("7"));
    EXPECT_EQ(anyDeskId("ad.anynet.network_id=main\nad.anynet.id_x=1\n"), std::nullopt);
}

TEST(TeamViewerIdTest, readsAPropertyListAsItIsPrinted) {
    EXPECT_EQ(teamViewerId("{\n    \"Always_Online\" = 1;\n    ClientIC = 5;\n"
                           "    ClientID = 987654321;\n}\n"),
              Id("987654321"));
    EXPECT_EQ(teamViewerId("{\n    ClientId = 5;\n}"), Id("5"));
}

TEST(RustDeskIdTest, readsToml) {
    EXPECT_EQ(rustDeskIdFromToml("password = ''\nid = '123456789' # ours\n"), Id("123456789"));
    EXPECT_EQ(rustDeskIdFromToml("id = 42 # old\n"), Id("42"));
    EXPECT_EQ(rustDeskIdFromToml("rustdesk-id = \"1\"\n"), Id("1"));
}

TEST(RustDeskIdTest, ignoresCommentsAndEncryptedIdentifiers) {
    EXPECT_EQ(rustDeskIdFromToml("# id = '1'\n#id='2'\n"), std::nullopt);
    EXPECT_EQ(rustDeskIdFromToml("enc_id = '00AB'\nkey_pair = [\n[\n0,\n],\n]\n"), std::nullopt);
}

}  // namespace
}  // namespace orv
