// SPDX-License-Identifier: Apache-2.0
//
// VUsbService: the binder service "vusbservice", the one place where a USB or input device
// is judged.
//
// Platform components report devices here; the service decides by the policy (Util), switches
// a refused USB device off (UsbDevice), remembers the verdict in its device lists and tells its
// clients. It also watches the policy file, so that a rewritten policy takes effect at once. The
// policy tables belong to Util and the map of interfaces to UsbDevice; the service owns the two
// device lists, the registered callbacks and the watcher thread.
//
// There is one service object. Register() makes it, the binder framework keeps it, and it lives
// until the process ends; that is why the death recipients may hold a plain pointer to it.
//
// Thread-safe: every operation runs on any binder thread, several at once, beside the watcher.
//
// Locks of the process, and the order in which they may nest:
//   1. UsbDevice::usb_host_mutex      a whole host port reset, its sleeps included
//   2. the policy files' mutex        the policy, its backup and the status file during one reload;
//                                     the crash handler takes it for good; private to
//                                     policy_files.cpp
//   3. VUsbService::lock_             callbacks_; also held over linking and unlinking a recipient,
//                                     so that no death notice comes between a link and its entry
//   4. the device lists' mutex        both device lists; private to vu_service.cpp
//   5. Util::policy_mutex             shared by a decision while it reads the mode and the rules,
//                                     exclusive while a load puts its result in force; waited for
//                                     in turn, with a mutex of util.cpp held while waiting
//   6. DeviceMap's mutex              which rebuild is shown, and what the next one may take over
//   7. UsbDevice::map_mutex           the device-id map
//      UsbDevice::power_val_mutex     the last value of the dock's supply
//      ClientCalls' mutex             who is in which client, and who waits to be
// Only 5 is ever taken inside another one (2), and 7 (6, 1). No lock is held while a callback runs;
// none but 1 while sysfs is read or written; none but 2 while a file is written; none but these two
// while sleeping: a client may call back into the service from within its callback, and the kernel
// may keep a write of sysfs waiting for 20 s.

#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <binder/IBinder.h>
#include <binder/Status.h>
#include <utils/StrongPointer.h>

#include "android/vus/BnVUsbService.h"
#include "android/vus/DeviceInfo.h"
#include "android/vus/IVUsbServiceCallback.h"
#include "android/vus/client_calls.h"
#include "android/vus/mutex.h"
#include "android/vus/policy_files.h"

namespace android::vus {

struct usbinterface_custom;

// The known devices by deviceId: the USB devices, and the input devices. The first record of an
// id stays until the id is reported removed.
//
// They are `static`: every source file that includes this header has a pair of its own, and only
// the pair of vu_service.cpp is ever used (kept: oddity 10). All access to the lists is there.
static std::map<int32_t, std::unique_ptr<DeviceInfo>> mUsbDeviceInfoList;
static std::map<int32_t, std::unique_ptr<DeviceInfo>> mInputDeviceInfoList;

class VUsbService : public BnVUsbService {
  public:
    class CallbackDeathRecipient;
    // Keyed by the client's binder. A client that registers twice has two entries.
    using CallbackMap = std::multimap<IBinder*, sp<CallbackDeathRecipient>>;

    // Loads the policy, publishes a new service object and starts the watcher. A service that
    // cannot be published ends the process.
    static void Register();

    // IVUsbService. Every operation answers an OK status.
    binder::Status registerVusCallback(const sp<IVUsbServiceCallback>& callback) override;
    binder::Status unregisterVusCallback(const sp<IVUsbServiceCallback>& callback) override;
    binder::Status getDeviceList(std::vector<DeviceInfo>* out) override;
    binder::Status updateDeviceList(const DeviceInfo& info, int32_t action) override;
    binder::Status isDeviceAllowed(const DeviceInfo& info, bool* result) override;
    binder::Status resetUsbDevices(int32_t value) override;

    // Answers BAD_VALUE to a record that claims more than its parcel holds.
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;

    // The platform's diagnostic dump: the known devices, or with the argument "test" the USB tree
    // and the device-id map.
    status_t dump(int fd, const Vector<String16>& args) override;
    // One device of the dump.
    void dumpPrint(int fd, DeviceInfo info);

    // Remembers a judged device, with the categories that the map has of its interfaces, and tells
    // the clients of a USB device. A device that is already known keeps its first record.
    void addDeviceList(DeviceInfo info, bool allowed, std::string reason);

    // The watcher of the policy file: starts its thread; the thread's body; its read loop, which
    // returns only when the directory can no longer be watched.
    static void registerFileObserverViaThread();
    static void* registerFileObserver(void* unused);
    static void readFileChangeEvent();

    // Removes one registration and its death link; false if the link could not be removed. The
    // entry is gone in both cases.
    bool UnregisterInternal(CallbackMap::iterator entry) REQUIRES(lock_);

    // True on a debug build of the platform: each entry of callbacks_ is logged when one comes or
    // goes, and each call of a client, all with their addresses. (The address of a callback that is
    // being registered or withdrawn is logged on every build.) Set by Register().
    static std::atomic<bool> debugBuild;

    Mutex lock_;
    CallbackMap callbacks_ GUARDED_BY(lock_);

  private:
    struct DeviceLists {
        std::vector<DeviceInfo> input;
        std::vector<DeviceInfo> usb;
    };
    // Copies of both lists at one moment, each in ascending deviceId.
    static DeviceLists copyDeviceLists();

    // addDeviceList() for one who knows the device's interfaces.
    void enterDevice(DeviceInfo info, bool allowed, std::string reason,
                     const std::vector<usbinterface_custom>& interfaces);
    void removeUsbDevice(const DeviceInfo& info);

    // The registrations at one moment, in the order of callbacks_. A walk over them holds no lock,
    // so a callback may do to the registry whatever it likes.
    std::vector<sp<CallbackDeathRecipient>> copyRecipients();
    // Tells the clients that an event has not yet reached, one after the other, and waits for each;
    // see ClientCalls.
    struct Walk;
    void tellRest(const std::shared_ptr<Walk>& walk);
    using ClientEvent = binder::Status (IVUsbServiceCallback::*)(const DeviceInfo&);
    void notifyClients(const DeviceInfo& info, const char* logPrefix, ClientEvent event);
    void notifyDeviceAdded(const DeviceInfo& info);
    void notifyDeviceRemoved(const DeviceInfo& info);

    // The oldest registration of a binder, or the map's end.
    CallbackMap::iterator findCallback(IBinder* binder) REQUIRES(lock_);
    void logCallbacks(const char* prefix) const REQUIRES(lock_);

    // True if the platform runs its own tests and no device is to be judged.
    static bool isAutomationSet();

    // Resets the USB host ports, or with a positive value undocks for that many milliseconds.
    // A failure is logged and goes no further.
    static void resetHostPorts(int32_t value);

    // Loads the policy again; on the watcher's thread only.
    static void answerRewrite(PolicyFiles::Cause cause);

    ClientCalls clientCalls_;
};

// Drops one registration when its client dies. One recipient a registration; owned by its entry
// in callbacks_ (the binder framework holds it weakly).
class VUsbService::CallbackDeathRecipient : public IBinder::DeathRecipient {
  public:
    CallbackDeathRecipient(sp<IVUsbServiceCallback> callback, VUsbService* owner);

    // Ends the process when `who` is not this registration's binder, or has no registration left.
    void binderDied(const wp<IBinder>& who) override;

    const sp<IVUsbServiceCallback>& callback() const { return callback_; }
    // The process that registered it, 0 if that is this one.
    pid_t process() const { return process_; }

  private:
    const sp<IVUsbServiceCallback> callback_;
    VUsbService* const owner_;  // outlives every recipient
    const pid_t process_;
};

}  // namespace android::vus
