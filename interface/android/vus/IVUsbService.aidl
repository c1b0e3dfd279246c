// SPDX-License-Identifier: Apache-2.0
package android.vus;

import android.vus.DeviceInfo;
import android.vus.IVUsbServiceCallback;

/**
 * The service that decides which USB and input devices may be used, known to the service
 * manager as "vusbservice".
 *
 * Every operation answers with an OK status: decisions are out values, and what went
 * wrong inside is in the log. Whoever can find the service may call it; a platform
 * restricts that to its own components. Operations are numbered in this order; new ones
 * can only be appended.
 */
interface IVUsbService {
    /** Has the callback hear of devices until it is withdrawn or its process dies. */
    void registerVusCallback(IVUsbServiceCallback callback);

    /** Withdraws a callback. One that is not registered is left alone. */
    void unregisterVusCallback(IVUsbServiceCallback callback);

    /**
     * Every known device with its verdict: input devices first, then USB devices, each in
     * ascending deviceId.
     */
    DeviceInfo[] getDeviceList();

    /**
     * Reports that a device went away (action 0): callbacks hear of it if it is a USB
     * device, and it leaves its list. Any other action is only logged, because devices
     * enter the lists by isDeviceAllowed.
     */
    void updateDeviceList(in DeviceInfo info, int action);

    /**
     * Judges a device and remembers it. A refused USB device is switched off before this
     * returns. A USB device that is an input device and nothing else is answered with
     * false and not remembered: its input side is judged when that is reported.
     */
    boolean isDeviceAllowed(in DeviceInfo info);

    /**
     * With 0 or less, switches the USB host ports off and on, so that attached devices come back
     * and are judged again. With a positive number, undocks virtually for that many
     * milliseconds. Returns when it is done.
     */
    void resetUsbDevices(int value);
}
