#include <android/hardware/sensors/1.0/types.h>
#include <android/hardware/sensors/2.1/types.h>
#include <cutils/native_handle.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hidl/HidlSupport.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace android {
namespace hardware {
namespace {

using sensors::V1_0::MetaDataEventType;
using sensors::V1_0::SensorFlagBits;
using sensors::V1_0::SensorStatus;

TEST(HidlString, RoundTripsAndOwnership) {
    hidl_string empty;
    EXPECT_TRUE(empty.empty());
    EXPECT_STREQ("", empty.c_str());
    EXPECT_STREQ("", hidl_string(static_cast<const char*>(nullptr)).c_str());

    const std::string source = "accel";
    hidl_string fromStd(source);
    EXPECT_EQ(source, static_cast<std::string>(fromStd));
    EXPECT_EQ(5u, fromStd.size());
    EXPECT_TRUE(fromStd == "accel");
    EXPECT_TRUE("accel" == fromStd);
    EXPECT_TRUE(fromStd != "accel2");

    const char withNul[] = {'a', '\0', 'b'};
    hidl_string binary(withNul, sizeof(withNul));
    EXPECT_EQ(3u, binary.size());
    EXPECT_EQ(std::string(withNul, 3), static_cast<std::string>(binary));
    EXPECT_EQ('\0', binary.c_str()[3]);

    hidl_string copy = fromStd;
    EXPECT_NE(copy.c_str(), fromStd.c_str());
    EXPECT_EQ(copy, fromStd);
    hidl_string moved = std::move(copy);
    EXPECT_EQ(fromStd, moved);
    EXPECT_TRUE(copy.empty());
    moved = moved.c_str();  // assigning from its own buffer
    EXPECT_EQ(fromStd, moved);
}

TEST(HidlString, ExternalIsViewedThenCopiedOnCopy) {
    char buffer[] = "gyro";
    hidl_string view;
    view.setToExternal(buffer, 4);
    EXPECT_EQ(buffer, view.c_str());
    hidl_string copy = view;
    buffer[0] = 'G';
    EXPECT_STREQ("Gyro", view.c_str());
    EXPECT_STREQ("gyro", copy.c_str());
}

TEST(HidlVec, RoundTripsWithStdVector) {
    hidl_vec<int32_t> list = {1, 2, 3};
    ASSERT_EQ(3u, list.size());
    std::vector<int32_t> asVector = list;
    EXPECT_EQ((std::vector<int32_t>{1, 2, 3}), asVector);
    hidl_vec<int32_t> back(asVector);
    EXPECT_TRUE(back == list);
    int sum = 0;
    for (int32_t v : back) sum += v;
    EXPECT_EQ(6, sum);

    hidl_vec<hidl_string> names = {"a", "b"};
    std::vector<hidl_string> namesVector = names;
    EXPECT_EQ("b", namesVector[1]);

    hidl_vec<int32_t> copy = list;
    copy[0] = 10;
    EXPECT_EQ(1, list[0]);
    hidl_vec<int32_t> moved = std::move(copy);
    EXPECT_EQ(0u, copy.size());
    EXPECT_EQ(nullptr, copy.data());
    EXPECT_EQ(10, moved[0]);
    EXPECT_TRUE(moved != list);
}

TEST(HidlVec, ResizeKeepsPrefixAndZeroesTheRest) {
    hidl_vec<int32_t> list = {4, 5, 6};
    list.resize(5);
    EXPECT_EQ((std::vector<int32_t>{4, 5, 6, 0, 0}), static_cast<std::vector<int32_t>>(list));
    list.resize(1);
    EXPECT_EQ((std::vector<int32_t>{4}), static_cast<std::vector<int32_t>>(list));
    list.resize(0);
    EXPECT_EQ(0u, list.size());
}

TEST(HidlVec, SetToExternal) {
    int32_t external[] = {7, 8, 9};
    hidl_vec<int32_t> view;
    view.setToExternal(external, 3);
    EXPECT_EQ(external, view.data());
    hidl_vec<int32_t> copy = view;
    external[0] = 70;
    EXPECT_EQ(70, view[0]);
    EXPECT_EQ(7, copy[0]);
    view.resize(2);  // resizing a view copies into an owned buffer
    EXPECT_NE(external, view.data());
    EXPECT_EQ(70, view[0]);

    // Owned: freed by the vector (a leak or double free would show under ASan).
    hidl_vec<hidl_string> owned;
    owned.setToExternal(new hidl_string[2]{"x", "y"}, 2, true);
    EXPECT_EQ("y", owned[1]);
    owned = hidl_vec<hidl_string>{"z"};
    EXPECT_EQ("z", owned[0]);
}

bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

TEST(HidlHandle, OwnershipOfDescriptors) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    close(fds[1]);
    native_handle_t* native = native_handle_create(1, 1);
    ASSERT_NE(nullptr, native);
    native->data[0] = fds[0];
    native->data[1] = 42;

    {
        hidl_handle borrowed(native);
        EXPECT_EQ(native, borrowed.getNativeHandle());
        hidl_handle copy = borrowed;
        ASSERT_NE(nullptr, copy.getNativeHandle());
        EXPECT_NE(native, copy.getNativeHandle());
        const int clonedFd = copy->data[0];
        EXPECT_NE(fds[0], clonedFd);
        EXPECT_EQ(42, copy->data[1]);
        struct stat original {};
        struct stat cloned {};
        ASSERT_EQ(0, fstat(fds[0], &original));
        ASSERT_EQ(0, fstat(clonedFd, &cloned));
        EXPECT_EQ(original.st_ino, cloned.st_ino);

        hidl_handle moved = std::move(copy);
        EXPECT_EQ(nullptr, copy.getNativeHandle());
        EXPECT_EQ(clonedFd, moved->data[0]);
        moved = nullptr;  // the clone belonged to it
        EXPECT_FALSE(isOpen(clonedFd));
    }
    EXPECT_TRUE(isOpen(fds[0]));  // not owned, not closed

    hidl_handle empty;
    EXPECT_EQ(nullptr, static_cast<const native_handle_t*>(empty));
    hidl_handle emptyCopy = empty;
    EXPECT_EQ(nullptr, emptyCopy.getNativeHandle());

    {
        hidl_handle owner;
        owner.setTo(native, true);
    }
    EXPECT_FALSE(isOpen(fds[0]));
}

TEST(HidlReturn, AlwaysOkAndConverts) {
    Return<sensors::V1_0::Result> result = sensors::V1_0::Result::BAD_VALUE;
    EXPECT_TRUE(result.isOk());
    EXPECT_EQ(sensors::V1_0::Result::BAD_VALUE, static_cast<sensors::V1_0::Result>(result));
    EXPECT_EQ(sensors::V1_0::Result::BAD_VALUE, result.withDefault(sensors::V1_0::Result::OK));
    Return<bool> flag = true;
    EXPECT_TRUE(flag);
    EXPECT_TRUE(Void().isOk());
}

TEST(SensorTypes, EventBytesMatchTheWireLayout) {
    sensors::V2_1::Event event{};
    event.timestamp = 0x0102030405060708;
    event.sensorHandle = 0x11223344;
    event.sensorType = sensors::V2_1::SensorType::HINGE_ANGLE;
    event.u.vec3.x = 1.5f;
    event.u.vec3.y = -2.0f;
    event.u.vec3.z = 0.25f;
    event.u.vec3.status = SensorStatus::NO_CONTACT;

    unsigned char bytes[sizeof(event)];
    std::memcpy(bytes, &event, sizeof(event));
    int64_t timestamp;
    int32_t handle;
    int32_t type;
    float z;
    std::memcpy(&timestamp, bytes + 0, 8);
    std::memcpy(&handle, bytes + 8, 4);
    std::memcpy(&type, bytes + 12, 4);
    std::memcpy(&z, bytes + 16 + 8, 4);
    EXPECT_EQ(0x0102030405060708, timestamp);
    EXPECT_EQ(0x11223344, handle);
    EXPECT_EQ(36, type);
    EXPECT_EQ(0.25f, z);
    EXPECT_EQ(0xFF, bytes[16 + 12]);  // int8 -1
    for (size_t i = 16 + 13; i < sizeof(bytes); ++i) EXPECT_EQ(0, bytes[i]) << i;

    event.u.meta.what = MetaDataEventType::META_DATA_FLUSH_COMPLETE;
    EXPECT_EQ(1u, static_cast<uint32_t>(event.u.meta.what));
    EXPECT_EQ(0x10000, static_cast<int32_t>(sensors::V2_1::SensorType::DEVICE_PRIVATE_BASE));
}

TEST(SensorTypes, FlagArithmetic) {
    hidl_bitfield<SensorFlagBits> flags = SensorFlagBits::WAKE_UP | SensorFlagBits::ON_CHANGE_MODE;
    flags |= SensorFlagBits::DIRECT_CHANNEL_ASHMEM;
    EXPECT_EQ(0x403u, flags);
    EXPECT_EQ(static_cast<uint32_t>(SensorFlagBits::ON_CHANGE_MODE),
              flags & SensorFlagBits::MASK_REPORTING_MODE);
    EXPECT_EQ(0x400u, flags & SensorFlagBits::MASK_DIRECT_CHANNEL);
}

}  // namespace
}  // namespace hardware
}  // namespace android
