// The test-only globals of the host's script tests (tests/host/apps): the
// objects that the test plug-ins install beside webapis.kv. They merge into
// the Webapis interface of types/index.d.ts.

/** A call that the client library double recorded. */
interface KvDoubleCall {
    function: string;
    args: string[];
}

/** webapis.kvdouble: the controls of the client library double (tests/plugin/HARNESS.md). */
interface KvDouble {
    calls(): KvDoubleCall[];
    setResult(name: string, result: number): void;
    queueResult(name: string, result: number): void;
    setConnected(connected: number): void;
    setPeerAccessory(accessoryId: number, record: object): void;
    notificationsRegistered(): boolean;
    /** Calls the registered notification `name` with the notification's own arguments. */
    deliver(name: string, ...args: any[]): void;
    collectGarbage(): void;
    writeFile(path: string, text: string): void;
}

/** webapis.hosttest: the host tests' plug-in (tests/host). */
interface HostTest {
    /** A method guarded by the access control. */
    guarded(): boolean;
    /** Validates its arguments as a device API method does and answers them converted. */
    check(...args: any[]): any;
    /** The platform's error object for a name and a message (both left out on purpose by some tests). */
    makeError(...args: any[]): any;
}

interface Webapis {
    readonly kvdouble: KvDouble;
    readonly hosttest: HostTest;
}
