// Type declarations of webapis.kv and of the runtime object that every web
// app gets (runtime.args, runtime.exit, runtime.now), whichever host runs it.
// docs/api.md describes every member.
//
// Apps don't name this file: they check against index.d.ts (script apps,
// whose host gives its own console and timers) or page.d.ts (apps that are
// pages, whose console, timers and DOM are the engine's).
//
// Every callback runs on a later turn of the main loop, never inside the call
// that caused it. Listener callbacks run with `this` bound to the object
// whose listener they are (the agent, the socket, the file transfer).

// ---------------------------------------------------------------------------
// Enumerations: the strings that apps see.

/** The part a local agent plays. */
type KvRole = "PROVIDER" | "CONSUMER";

/** The link over which an accessory is reached. */
type KvTransportType = "TRANSPORT_BT" | "TRANSPORT_BLE" | "TRANSPORT_USB" | "TRANSPORT_WIFI";

/** Whether the accessory device came or went. */
type KvDeviceStatus = "ATTACHED" | "DETACHED";

/** Whether a known peer agent is there (it registered) or went away. */
type KvPeerAgentStatus = "AVAILABLE" | "UNAVAILABLE";

/** Why a search for peer agents ended without one. */
type KvPeerAgentFindErrorCode = "PEER_NOT_FOUND" | "DUPLICATE_REQUEST" | "DEVICE_NOT_CONNECTED";

/** Why a service connection could not be made. */
type KvServiceConnectionErrorCode =
    | "ALREADY_EXIST"
    | "NETWORK_ERROR"
    | "DEVICE_UNREACHABLE"
    | "INVALID_PEERAGENT"
    | "PEERAGENT_NO_RESPONSE"
    | "PEERAGENT_REJECTED"
    | "ERROR_REFLECTION_EXCEPTION";

/** Why an open service connection ended. */
type KvSocketStatusErrorCode = "PEER_DISCONNECTED" | "DEVICE_DETACHED" | "UNKNOWN_REASON";

/** Why sending a file failed. */
type KvFileSendErrorCode =
    | "FILE_IO"
    | "PEER_BUSY"
    | "PEER_CHANNEL_IO"
    | "PEER_CONN_LOST"
    | "PEER_NO_RESPONSE"
    | "PEER_REJECTED"
    | "REQUEST_NOT_QUEUED"
    | "SPACE_NOT_AVAILABLE"
    | "UNKNOWN_ERROR";

/** Why receiving a file failed. */
type KvFileReceiveErrorCode =
    | "FILE_IO"
    | "PEER_CHANNEL_IO"
    | "PEER_CONN_LOST"
    | "PEER_NO_RESPONSE"
    | "PEER_REJECTED"
    | "SPACE_NOT_AVAILABLE"
    | "UNKNOWN_ERROR";

/** How a peer was authenticated. */
type KvAuthenticationTokenType =
    | "AUTHENTICATION_TYPE_NONE"
    | "AUTHENTICATION_TYPE_CERTIFICATE_X509"
    | "UNKNOWN_ERROR";

/** The names of the errors that webapis.kv throws or passes. */
type KvErrorName =
    | "TypeMismatchError"
    | "InvalidValuesError"
    | "IOError"
    | "SecurityError"
    | "UnknownError"
    | "ServiceNotAvailableError"
    | "TokenNotGeneratedError";

// ---------------------------------------------------------------------------
// Errors

/**
 * The error objects of webapis.kv: thrown by a method, or passed to an error
 * callback. They inherit from Error.prototype.
 */
interface WebAPIError<Name extends KvErrorName = KvErrorName> extends Error {
    readonly name: Name;
    readonly message: string;
    /** 17 for TypeMismatchError, 18 for SecurityError, 0 for the others. */
    readonly code: number;
}

/** The error callback of requestKvAgent. */
type KvAgentRequestErrorCallback = (error: WebAPIError<"ServiceNotAvailableError" | "UnknownError">) => void;

/** The error callback of authenticatePeerAgent. */
type KvAuthenticationErrorCallback = (
    this: KvAgent,
    error: WebAPIError<"TokenNotGeneratedError" | "UnknownError">,
) => void;

// ---------------------------------------------------------------------------
// Callbacks and listener objects

/** The success callback of requestKvAgent: one agent per service profile, in file order. */
type KvAgentListCallback = (agents: KvAgent[]) => void;

/** The device-status callback of setDeviceStatusListener. */
type KvDeviceStatusCallback = (transportType: KvTransportType, status: KvDeviceStatus) => void;

/** The success callback of authenticatePeerAgent. */
type KvAuthenticationCallback = (
    this: KvAgent,
    peerAgent: KvPeerAgent,
    token: KvAuthenticationToken,
) => void;

/** The callback of setDataReceiveListener. */
type KvDataReceiveCallback = (this: KvSocket, channelId: number, data: string) => void;

/** The callback of setSocketStatusListener. */
type KvSocketStatusCallback = (this: KvSocket, reason: KvSocketStatusErrorCode) => void;

/** The listener object of setServiceConnectionListener; every attribute is optional. */
interface KvServiceConnectionListener {
    /** A peer asks for a connection: accept or reject it inside this callback. */
    onrequest?: (this: KvAgent, peerAgent: KvPeerAgent) => void;
    /** A connection was made (asked for by either side). */
    onconnect?: (this: KvAgent, socket: KvSocket) => void;
    /** A connection that this agent asked for, or accepted, failed. */
    onerror?: (this: KvAgent, errorCode: KvServiceConnectionErrorCode) => void;
}

/** The listener object of setPeerAgentFindListener; every attribute is optional. */
interface KvPeerAgentFindListener {
    /** A search found this peer agent; one call per peer. */
    onpeeragentfound?: (this: KvAgent, peerAgent: KvPeerAgent) => void;
    /** A peer agent of the same service registered or went away. */
    onpeeragentupdated?: (this: KvAgent, peerAgent: KvPeerAgent, status: KvPeerAgentStatus) => void;
    /** A search ended without a peer agent. */
    onerror?: (this: KvAgent, errorCode: KvPeerAgentFindErrorCode) => void;
}

/** The listener object of setFileSendListener; at least one attribute must be there. */
interface KvFileSendListener {
    /** How much of the file has gone, in percent (0 to 100). */
    onprogress?: (this: KvFileTransfer, transferId: number, progress: number) => void;
    /** The whole file arrived; `fileUri` is the sent file as a "file://" URI. */
    oncomplete?: (this: KvFileTransfer, transferId: number, fileUri: string) => void;
    /** The transfer ended without the whole file. */
    onerror?: (this: KvFileTransfer, transferId: number, errorCode: KvFileSendErrorCode) => void;
}

/** The listener object of setFileReceiveListener; at least one attribute must be there. */
interface KvFileReceiveListener {
    /** A peer offers a file: take it with receiveFile or refuse it with rejectFile. */
    onreceive?: (this: KvFileTransfer, transferId: number, fileName: string) => void;
    /** How much of the file has arrived, in percent (0 to 100). */
    onprogress?: (this: KvFileTransfer, transferId: number, progress: number) => void;
    /** The whole file is there; `fileUri` is where, as a "file://" URI. */
    oncomplete?: (this: KvFileTransfer, transferId: number, fileUri: string) => void;
    /** The transfer ended without the whole file. */
    onerror?: (this: KvFileTransfer, transferId: number, errorCode: KvFileReceiveErrorCode) => void;
}

// ---------------------------------------------------------------------------
// The script classes

/** webapis.kv: the entry object. */
interface KvManager {
    /**
     * Hands out the app's local agents, one per serviceProfile of its
     * service-profile file. Throws SecurityError without the accessory
     * privilege, TypeMismatchError for a success callback that is not a
     * function; passes ServiceNotAvailableError when the file gives no agent.
     */
    requestKvAgent(successCallback: KvAgentListCallback, errorCallback?: KvAgentRequestErrorCallback | null): void;
    /** Sets (replaces) the callback told when the accessory device is attached or detached. */
    setDeviceStatusListener(statusCallback: KvDeviceStatusCallback): void;
}

/** A local service agent of the app. */
interface KvAgent {
    /** The profile id; null for a profile without one. */
    readonly id: string | null;
    readonly name: string;
    readonly role: KvRole;
    /** The ids of the profile's channels, in file order. */
    readonly channelIds: number[];
    /** Asks the peer for a connection; the outcome comes to the service connection listener. */
    requestServiceConnection(peerAgent: KvPeerAgent): void;
    /** Sets (replaces) the service connection listener; the first call registers the agent. */
    setServiceConnectionListener(listener: KvServiceConnectionListener): void;
    /** Accepts the request of `peerAgent`; works only inside onrequest. */
    acceptServiceConnectionRequest(peerAgent: KvPeerAgent): void;
    /** Refuses the request of `peerAgent`; works only inside onrequest. */
    rejectServiceConnectionRequest(peerAgent: KvPeerAgent): void;
    /** Searches for peer agents of the same service; the first call registers the agent. */
    findPeerAgents(): void;
    /** Sets (replaces) the peer agent search listener. */
    setPeerAgentFindListener(listener: KvPeerAgentFindListener): void;
    /** Asks who the peer is; needs a registered agent and a paired (TLS) link. */
    authenticatePeerAgent(
        peerAgent: KvPeerAgent,
        successCallback: KvAuthenticationCallback,
        errorCallback?: KvAuthenticationErrorCallback | null,
    ): void;
    /** The agent's file transfer (one native object per agent). */
    getKvFileTransfer(): KvFileTransfer;
}

/** An open service connection. */
interface KvSocket {
    /** The peer agent at the other end. */
    readonly peerAgent: KvPeerAgent;
    /** Closes the connection; closing a closed one is no error. */
    close(): void;
    /** Whether the connection is open. */
    isConnected(): boolean;
    /**
     * Sends `data` on the channel `channelId` of the agent's profile. Throws
     * InvalidValuesError for data above 1,048,576 bytes or an unknown
     * channel, IOError when the connection is closed or the service refuses.
     */
    sendData(channelId: number, data: string): void;
    /** As sendData, but only over an authenticated (TLS) link: IOError otherwise. */
    sendSecureData(channelId: number, data: string): void;
    /** Sets (replaces) the data callback; data that arrives before one is set is dropped. */
    setDataReceiveListener(callback: KvDataReceiveCallback): void;
    /** Sets (replaces) the callback told when the connection ends. */
    setSocketStatusListener(callback: KvSocketStatusCallback): void;
}

/** The file transfer of an agent. */
interface KvFileTransfer {
    /** Where received files go when receiveFile is given no path: "/opt/usr/media/Downloads/". */
    readonly defaultReceivePath: string;
    /**
     * Offers the file `fileUri` (a virtual path such as "documents/a.txt", or a
     * "file://" URI) to `peerAgent`; answers the transfer id. Throws
     * InvalidValuesError "File scheme is not valid." for a path the app may
     * not send from.
     */
    sendFile(peerAgent: KvPeerAgent, fileUri: string): number;
    /** Sets (replaces) the file send listener. */
    setFileSendListener(listener: KvFileSendListener): void;
    /** Sets (replaces) the file receive listener; offers that come before one is set are dropped. */
    setFileReceiveListener(listener: KvFileReceiveListener): void;
    /**
     * Takes the offered file `transferId` into `fileUri` (the file's own path);
     * an empty string takes it into defaultReceivePath under its offered name.
     */
    receiveFile(transferId: number, fileUri: string): void;
    /** Cancels a transfer in either direction. */
    cancelFile(transferId: number): void;
    /** Refuses an offered file. */
    rejectFile(transferId: number): void;
}

/** A remote service agent, as its device reported it. */
interface KvPeerAgent {
    readonly peerAccessory: KvPeerAccessory;
    /** The name of the peer's app (the name element of its config.xml). */
    readonly appName: string;
    /** The largest data the peer's service takes in one send, in bytes. */
    readonly maxAllowedDataSize: number;
    /** The peer agent's id on its device. */
    readonly peerId: string;
    /** The version of the peer's service profile. */
    readonly profileVersion: string;
    /** Whether `other` stands for the same peer agent (same peerId). */
    equals(other: KvPeerAgent): boolean;
}

/** The remote accessory device. */
interface KvPeerAccessory {
    readonly deviceAddress: string;
    readonly deviceName: string;
    readonly productId: string;
    readonly transportType: KvTransportType;
    readonly vendorId: string;
}

/** The result of an authentication. */
interface KvAuthenticationToken {
    /** The SHA-256 fingerprint of the certificate that the peer's device presented. */
    readonly key: string;
    readonly authenticationType: KvAuthenticationTokenType;
}

// ---------------------------------------------------------------------------
// The host's globals

/** The device APIs: objects that plug-ins install. */
interface Webapis {
    readonly kv: KvManager;
}

declare const webapis: Webapis;

interface KvRuntime {
    /** The app's arguments: those after "--" on the kv-runtime command line. */
    readonly args: string[];
    /**
     * Ends the app with `code` (0 to 255; 0 without one); throws RangeError
     * for another code. Does not return.
     */
    exit(code?: number): never;
    /**
     * Milliseconds since the app's process started, on the monotonic clock,
     * with sub-millisecond resolution (for timing).
     */
    now(): number;
}

declare const runtime: KvRuntime;
