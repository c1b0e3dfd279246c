// SPDX-License-Identifier: Apache-2.0
package android.vus;

/**
 * One USB or input device: what a platform component knows about it when it asks, and,
 * in the device list and in callbacks, also what the service decided.
 *
 * A device with both a USB and an input side is reported twice, once as each, under two
 * ids. Fields are written to a parcel in this order; new ones can only be appended.
 */
parcelable DeviceInfo {
    /** The device's name as the reporter gives it; may be empty. */
    @utf8InCpp String deviceName;

    /**
     * The key of the device lists. A USB device's is its bus number times 1000 plus its
     * device number, which is also how the service finds the device in sysfs; an input
     * device's is its reporter's choice.
     */
    int deviceId = 0;

    /**
     * A USB device's class code (bDeviceClass); an input device's source bits, as the
     * input subsystem names them (AINPUT_SOURCE_KEYBOARD and others, any number of them).
     */
    int deviceClass = 0;

    /** The class codes of a USB device's interfaces, in the order of its descriptors. */
    int[] interfaceClassList;

    /** The USB vendor id. */
    int vendorId = 0;

    /** The USB product id. */
    int productId = 0;

    /** 1: enabled, the device was allowed. 0: disabled. Set by the service. */
    int status = 0;

    /** 1: an input device, to be judged by its sources. 0: a USB device, judged by its classes. */
    int deviceType = 0;

    /** Why the device was allowed or refused, as text. Set by the service. */
    @utf8InCpp String reason;

    /**
     * What a USB device's interfaces became: the sum of 1 for each network interface, 2
     * for each tty, 4 for each mass storage and 8 for each vendor HID. Set by the service.
     */
    int category = 0;

    /**
     * The names of those interfaces (a network interface's, a tty's), each once and each
     * followed by ";". Set by the service.
     */
    @utf8InCpp String categoryPath;
}
