#include <gtest/gtest.h>

#include "OrvViewerShared/Audit/Disks.h"

namespace orv {
namespace {

TEST(DisksTest, haveAllTheirKeys) {
    EXPECT_EQ(diskRecords({{"Dysk", "/", 1000, 300, "apfs"}}), parseJson(R"([
        {"name": "Dysk", "mount_point": "/", "total_bytes": 1000, "free_bytes": 300,
         "used_bytes": 700, "file_system": "apfs"}])"));
    EXPECT_EQ(diskRecords({}), Json::array());
}

TEST(DisksTest, neverHaveMoreFreeThanTheyHold) {
    const Json records = diskRecords({{"Dysk", "/", 1000, 3000, "apfs"}});
    EXPECT_EQ(records[0]["free_bytes"], 1000);
    EXPECT_EQ(records[0]["used_bytes"], 0);
}

}  // namespace
}  // namespace orv
