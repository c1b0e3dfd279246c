// SPDX-License-Identifier: Apache-2.0
package android.vus;

import android.vus.DeviceInfo;

/**
 * A client that hears of devices. The service calls one client after the other and waits
 * for each, so an implementation returns soon. One that has not returned after 5 s is passed
 * over until it does, and is not told later of what it missed: it can list the devices then.
 * A callback is never called again before it has returned, except from within its own calls.
 *
 * It may call the service from within, including to withdraw itself. A callback may arrive
 * while the same client is itself inside a call to the service; it then runs on the calling
 * thread.
 *
 * The service ignores what a callback returns. The client's death withdraws it.
 */
interface IVUsbServiceCallback {
    /** A USB device was judged; the record holds the verdict, its reason and its categories. */
    void onDeviceAdded(in DeviceInfo info);

    /** A USB device was reported as gone. The service's list still holds it during this call. */
    void onDeviceRemoved(in DeviceInfo info);
}
