// SPDX-License-Identifier: Apache-2.0
//
// The two device lists: what enters them, what leaves them, and who hears of it.

#include <cstdint>
#include <limits>

#include "service_fixture.h"

namespace android::vus {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class DeviceListTest : public ServiceTest {
  protected:
    // An interface of the device in the device-id map, as a rebuild would leave it.
    static void MapInterface(int32_t deviceId, int32_t category, const std::string& path,
                             const std::string& name = "1-1:1.0", uint32_t vendor = 0) {
        usbinterface_custom record = {};
        snprintf(record.name, sizeof(record.name), "%s", name.c_str());
        snprintf(record.category_path, sizeof(record.category_path), "%s", path.c_str());
        record.category = category;
        record.idVendor = vendor;
        const std::lock_guard<std::mutex> lock(UsbDevice::map_mutex);
        UsbDevice::deviceid_map.emplace(deviceId, record);
    }

    DeviceInfo OnlyRecord() {
        const std::vector<DeviceInfo> list = List();
        EXPECT_EQ(list.size(), 1u);
        return list.empty() ? DeviceInfo() : list.front();
    }
};

TEST_F(DeviceListTest, AnInputDeviceIsCopiedFieldByField) {
    DeviceInfo keyboard = InputDevice(7, 0x101);
    keyboard.interfaceClassList = {3, 1, 3};
    keyboard.vendorId = 1133;
    keyboard.productId = 49948;
    keyboard.status = 5;
    keyboard.reason = "the reporter's";
    keyboard.category = 9;
    keyboard.categoryPath = "x;";
    service_->addDeviceList(keyboard, true, "because");

    const DeviceInfo record = OnlyRecord();
    EXPECT_EQ(record.deviceName, keyboard.deviceName);
    EXPECT_EQ(record.deviceId, 7);
    EXPECT_EQ(record.deviceClass, 0x101);
    EXPECT_EQ(record.interfaceClassList, (std::vector<int32_t>{3, 1, 3}));
    EXPECT_EQ(record.vendorId, 1133);
    EXPECT_EQ(record.productId, 49948);
    EXPECT_EQ(record.deviceType, 1);
    EXPECT_EQ(record.status, 1);
    EXPECT_EQ(record.reason, "because");
    EXPECT_EQ(record.category, 0);
    EXPECT_EQ(record.categoryPath, "");
}

TEST_F(DeviceListTest, ARefusedDeviceHasStatusZero) {
    DeviceInfo keyboard = InputDevice(7, 0x101);
    keyboard.status = 1;
    service_->addDeviceList(keyboard, false, "no");
    EXPECT_EQ(OnlyRecord().status, 0);
}

TEST_F(DeviceListTest, AddingAnInputDeviceLogsOneLineAndTellsNoClient) {
    const sp<RecordingCallback> client = RegisterClient();
    logs_.Clear();
    service_->addDeviceList(InputDevice(7, 0x101, "kbd"), true, "ok");
    EXPECT_THAT(logs_.Lines(), ElementsAre("I kbd device added to mInputDeviceInfoList"));
    EXPECT_THAT(client->Events(), IsEmpty());
}

TEST_F(DeviceListTest, EveryNonZeroTypeIsAnInputDevice) {
    DeviceInfo device = InputDevice(1, 0);
    for (const int32_t type : {-1, 1, 2}) {
        device.deviceId = type;
        device.deviceType = type;
        service_->addDeviceList(device, true, "");
    }
    logs_.Clear();
    DumpText();
    EXPECT_THAT(Messages(), Contains("mInputDeviceInfoList size 3mUsbDeviceInfoList size 0"));
}

TEST_F(DeviceListTest, AUsbDeviceGetsItsInterfacesCategories) {
    MapInterface(1002, kCategoryTty, "ttyACM0");
    MapInterface(1002, kCategoryNetwork, "usb0");
    MapInterface(1002, kCategoryTty, "ttyACM0");
    MapInterface(1002, kCategoryStorage, "");
    MapInterface(1003, kCategoryVendorHid, "another device's");
    service_->addDeviceList(UsbDeviceInfo(1002, {2, 10}, "dock"), true, "ok");

    // Every category counts, a repeated one again; a path once.
    EXPECT_EQ(OnlyRecord().category, 2 + 1 + 2 + 4);
    EXPECT_EQ(OnlyRecord().categoryPath, "ttyACM0;usb0;");
}

TEST_F(DeviceListTest, AddingAUsbDeviceLogsInOrder) {
    MapInterface(1002, kCategoryTty, "ttyACM0", "1-2:1.0");
    const sp<RecordingCallback> client = RegisterClient();
    logs_.Clear();
    service_->addDeviceList(UsbDeviceInfo(1002, {2}, "modem"), true, "ok");
    EXPECT_THAT(Messages(),
                ElementsAre("get_deviceid_data() with deviceId : 1002size--1",
                            "Found deviceid  : 1002device : 1-2:1.0",
                            "modem device added to mUsbDeviceInfoList ", "custom_struct size is 1",
                            " device category  2 categoryPath ttyACM0;"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
}

TEST_F(DeviceListTest, APathThatOccursInAnEarlierOneIsLeftOut) {
    MapInterface(1001, 0, "a");
    MapInterface(1001, 0, "ab");
    MapInterface(1002, 0, "ab");
    MapInterface(1002, 0, "a");
    service_->addDeviceList(UsbDeviceInfo(1001, {2}), true, "");
    service_->addDeviceList(UsbDeviceInfo(1002, {2}), true, "");
    EXPECT_EQ(List()[0].categoryPath, "a;ab;");
    EXPECT_EQ(List()[1].categoryPath, "ab;");
}

TEST_F(DeviceListTest, AUsbDeviceUnknownToTheMapHasNoCategory) {
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), true, "ok");
    EXPECT_EQ(OnlyRecord().category, 0);
    EXPECT_EQ(OnlyRecord().categoryPath, "");
    EXPECT_THAT(Messages(), Contains(" device category  0 categoryPath "));
}

TEST_F(DeviceListTest, ClientsHearOfTheNewRecordBeforeItIsListed) {
    MapInterface(1002, kCategoryStorage, "sdcard");
    const sp<RecordingCallback> client = RegisterClient();
    size_t listedMeanwhile = 99;
    client->on_added = [&](const DeviceInfo&) { listedMeanwhile = List().size(); };
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), false, "no");

    ASSERT_EQ(client->added.size(), 1u);
    EXPECT_EQ(client->added[0].deviceName, "disk");
    EXPECT_EQ(client->added[0].status, 0);
    EXPECT_EQ(client->added[0].reason, "no");
    EXPECT_EQ(client->added[0].category, 4);
    EXPECT_EQ(client->added[0].categoryPath, "sdcard;");
    EXPECT_EQ(listedMeanwhile, 0u);
}

TEST_F(DeviceListTest, TheFirstRecordOfAnIdStaysAndClientsHearOfBoth) {
    const sp<RecordingCallback> client = RegisterClient();
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "first"), true, "one");
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "second"), false, "two");
    EXPECT_EQ(OnlyRecord().deviceName, "first");
    EXPECT_EQ(OnlyRecord().status, 1);
    EXPECT_EQ(OnlyRecord().reason, "one");
    EXPECT_THAT(client->Events(), ElementsAre("added first", "added second"));
}

TEST_F(DeviceListTest, TheFirstInputRecordOfAnIdStays) {
    service_->addDeviceList(InputDevice(7, 0x101, "first"), true, "one");
    service_->addDeviceList(InputDevice(7, 0x101, "second"), false, "two");
    EXPECT_EQ(OnlyRecord().deviceName, "first");
    EXPECT_EQ(OnlyRecord().reason, "one");
}

TEST_F(DeviceListTest, AfterARemovalAnIdTakesANewRecord) {
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "first"), true, "one");
    service_->updateDeviceList(UsbDeviceInfo(1002, {8}, "first"), 0);
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "second"), false, "two");
    EXPECT_EQ(OnlyRecord().deviceName, "second");
}

TEST_F(DeviceListTest, TheListHasInputDevicesFirstEachByAscendingId) {
    service_->addDeviceList(UsbDeviceInfo(5, {8}), true, "");
    service_->addDeviceList(InputDevice(7, 0x101), true, "");
    service_->addDeviceList(InputDevice(3, 0x101), true, "");
    logs_.Clear();
    EXPECT_THAT(ListedIds(), ElementsAre(3, 7, 5));
    EXPECT_THAT(Messages(),
                ElementsAre("--getDeviceList()--", "getDeviceList--completeDeviceInfoList size3"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
}

TEST_F(DeviceListTest, IdsAreSigned) {
    constexpr int32_t kMin = std::numeric_limits<int32_t>::min();
    constexpr int32_t kMax = std::numeric_limits<int32_t>::max();
    for (const int32_t id : {kMax, -1, 0, kMin}) {
        service_->addDeviceList(UsbDeviceInfo(id, {8}), true, "");
    }
    EXPECT_THAT(ListedIds(), ElementsAre(kMin, -1, 0, kMax));
}

TEST_F(DeviceListTest, AnIdMayBeInBothLists) {
    service_->addDeviceList(UsbDeviceInfo(5, {8}, "usb"), true, "");
    service_->addDeviceList(InputDevice(5, 0x101, "input"), true, "");
    service_->updateDeviceList(UsbDeviceInfo(5, {8}, "usb"), 0);
    EXPECT_EQ(OnlyRecord().deviceName, "input");
}

TEST_F(DeviceListTest, TheListIsAppendedToWhatTheCallerHas) {
    service_->addDeviceList(InputDevice(3, 0x101), true, "");
    std::vector<DeviceInfo> out = {UsbDeviceInfo(42, {})};
    EXPECT_TRUE(service_->getDeviceList(&out).isOk());
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0].deviceId, 42);
    EXPECT_EQ(out[1].deviceId, 3);
}

TEST_F(DeviceListTest, AnEmptyListIsEmpty) {
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_THAT(Messages(), Contains("getDeviceList--completeDeviceInfoList size0"));
}

TEST_F(DeviceListTest, RemovingAnInputDeviceTellsNoClient) {
    const sp<RecordingCallback> client = RegisterClient();
    service_->addDeviceList(InputDevice(7, 0x101, "kbd"), true, "");
    MapInterface(7, kCategoryNone, "empty");
    logs_.Clear();
    EXPECT_TRUE(service_->updateDeviceList(InputDevice(7, 0x101, "kbd"), 0).isOk());
    EXPECT_THAT(Messages(),
                ElementsAre("updateDeviceList--Device Name : kbdupdateStatus::Added/Removed 0",
                            "kbd device removed from mInputDeviceInfoList",
                            "updateDeviceList--mInputDeviceInfoList size: 0 mUsbDeviceInfoList "
                            "size: 0"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
    EXPECT_THAT(client->Events(), IsEmpty());
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_EQ(UsbDevice::get_deviceid_data(7).size(), 1u) << "the map is the USB side's";
}

TEST_F(DeviceListTest, RemovingAUsbDeviceLogsInOrder) {
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "disk"), true, "");
    service_->addDeviceList(InputDevice(7, 0x101, "kbd"), true, "");
    logs_.Clear();
    EXPECT_TRUE(service_->updateDeviceList(UsbDeviceInfo(1002, {8}, "disk"), 0).isOk());
    EXPECT_THAT(Messages(),
                ElementsAre("updateDeviceList--Device Name : diskupdateStatus::Added/Removed 0",
                            "updateDeviceList--calling get_deviceid_data while removing",
                            "update_deviceid_map deviceId:1002 flag:0",
                            "disk device removed from mUsbDeviceInfoList",
                            "updateDeviceList--mInputDeviceInfoList size: 1 mUsbDeviceInfoList "
                            "size: 0"));
    EXPECT_THAT(logs_.Errors(), IsEmpty());
    EXPECT_THAT(ListedIds(), ElementsAre(7));
}

TEST_F(DeviceListTest, ClientsHearOfARemovalBeforeTheRecordsGo) {
    service_->addDeviceList(UsbDeviceInfo(1002, {8}, "stored"), true, "ok");
    MapInterface(1002, kCategoryStorage, "sdcard");
    const sp<RecordingCallback> client = RegisterClient();
    size_t listed = 0;
    size_t mapped = 0;
    client->on_removed = [&](const DeviceInfo&) {
        listed = List().size();
        mapped = UsbDevice::get_deviceid_data(1002).size();
    };
    service_->updateDeviceList(UsbDeviceInfo(1002, {}, "reported"), 0);

    EXPECT_EQ(listed, 1u);
    EXPECT_EQ(mapped, 1u);
    EXPECT_THAT(client->Events(), ElementsAre("removed reported")) << "the reporter's record";
    EXPECT_THAT(ListedIds(), IsEmpty());
    EXPECT_THAT(UsbDevice::get_deviceid_data(1002), IsEmpty());
}

TEST_F(DeviceListTest, EveryClientHearsOfTheRemovalOfADeviceThatWasNeverListed) {
    const sp<RecordingCallback> first = RegisterClient();
    const sp<RecordingCallback> second = RegisterClient();
    service_->updateDeviceList(UsbDeviceInfo(4711, {}, "ghost"), 0);
    EXPECT_THAT(first->Events(), ElementsAre("removed ghost"));
    EXPECT_THAT(second->Events(), ElementsAre("removed ghost"));
}

TEST_F(DeviceListTest, AnAdditionReportOnlyLogs) {
    const sp<RecordingCallback> client = RegisterClient();
    service_->addDeviceList(UsbDeviceInfo(1, {8}), true, "");
    for (const int32_t action : {1, 2, -1}) {
        logs_.Clear();
        service_->updateDeviceList(UsbDeviceInfo(2, {8}, "disk"), action);
        EXPECT_THAT(Messages(),
                    ElementsAre("updateDeviceList--Device Name : diskupdateStatus::Added/Removed " +
                                        std::to_string(action),
                                "disk device added to mUsbDeviceInfoList",
                                "updateDeviceList--mInputDeviceInfoList size: 0 "
                                "mUsbDeviceInfoList size: 1"));
        EXPECT_THAT(logs_.Errors(), IsEmpty());
    }
    logs_.Clear();
    service_->updateDeviceList(InputDevice(2, 0x101, "kbd"), 1);
    EXPECT_THAT(Messages(), Contains("kbd device added to mInputDeviceInfoList"));
    EXPECT_THAT(ListedIds(), ElementsAre(1));
    EXPECT_THAT(client->Events(), ElementsAre("added device 1"));
}

TEST_F(DeviceListTest, UnderAutomationARemovalTouchesNothing) {
    service_->addDeviceList(UsbDeviceInfo(1002, {8}), true, "");
    service_->addDeviceList(InputDevice(7, 0x101), true, "");
    MapInterface(1002, kCategoryStorage, "sdcard");
    const sp<RecordingCallback> client = RegisterClient();
    SetProperty(kAutomationProperty, "1");
    logs_.Clear();
    EXPECT_TRUE(service_->updateDeviceList(UsbDeviceInfo(1002, {8}), 0).isOk());
    EXPECT_THAT(logs_.Lines(), ElementsAre("I updateDeviceList::Automation flag set, return"));
    EXPECT_TRUE(service_->updateDeviceList(InputDevice(7, 0x101), 0).isOk());
    EXPECT_THAT(ListedIds(), ElementsAre(7, 1002));
    EXPECT_EQ(UsbDevice::get_deviceid_data(1002).size(), 1u);
    EXPECT_THAT(client->Events(), IsEmpty());
}

TEST_F(DeviceListTest, OnlyTheNumberOneIsAutomation) {
    for (const char* value : {"0", "2", "-1", "true", ""}) {
        service_->addDeviceList(InputDevice(7, 0x101), true, "");
        SetProperty(kAutomationProperty, value);
        service_->updateDeviceList(InputDevice(7, 0x101), 0);
        EXPECT_THAT(ListedIds(), IsEmpty()) << "for " << value;
    }
}

TEST_F(DeviceListTest, AResetIsPassedOn) {
    EXPECT_TRUE(service_->resetUsbDevices(0).isOk());
    EXPECT_THAT(logs_.Lines(),
                ElementsAre("I resetUsbDevices called", "I usb_host_reset entered:"));
}

TEST_F(DeviceListTest, AResetSwitchesTheControllers) {
    const std::string mode = std::string(kSocDir) + kSuperSpeedModeFile;
    WriteFile(mode, "host\n");
    service_->resetUsbDevices(-5);
    EXPECT_EQ(ReadFile(mode).substr(0, 4), "host");
    EXPECT_THAT(Messages(), Contains("usb_host_reset mode set to none for syspath: " + mode));
    EXPECT_THAT(Messages(), Contains("usb_host_reset mode set to host for syspath: " + mode));
}

TEST_F(DeviceListTest, AResetThatFailsAnswersOkAndLeavesTheNextOneFree) {
    // A DisplayLink adapter whose controller is in host mode, and a supply that is no number.
    MapInterface(2001, kCategoryNone, "empty", "2-1:1.0", 6121);
    WriteFile(UsbPath("usb2", "devspec"), "/soc/ssusb@a600000/dwc3@a600000\n");
    WriteFile("/sys/devices/platform/soc/a600000.ssusb/mode", "host\n");
    WriteFile(kUsbOnlineFile, "charging\n");
    EXPECT_TRUE(service_->resetUsbDevices(1).isOk());
    EXPECT_THAT(logs_.Errors(), Contains(StartsWith("usb_host_reset failed: ")));

    EXPECT_TRUE(UsbDevice::usb_host_mutex.try_lock());
    UsbDevice::usb_host_mutex.unlock();
    EXPECT_TRUE(service_->resetUsbDevices(0).isOk());
}

}  // namespace
}  // namespace android::vus
