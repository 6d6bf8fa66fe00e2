/*
 * The client library of the accessory service, libkvp-client-stub-api.
 *
 * An application process talks to its device's accessory service only through
 * these functions. Requests return at once with a result; their outcomes, and
 * everything the service has to tell (registrations confirmed, peers found,
 * connections requested, made and ended, data, files, device attach and
 * detach), arrive later through the callbacks of two notification tables.
 *
 * Threads: in this runtime every callback is delivered on the process's main
 * loop thread (the ecore main loop), one at a time, never inside the request
 * call that caused it. Requests must be made on that thread too.
 *
 * Results (enum kvp_result): 0 is success; the known failures are
 *   KVP_ERROR_GENERAL   (-1) the service refused or could not do it,
 *   KVP_ERROR_INVALID   (-2) a bad argument or an unknown id,
 *   KVP_ERROR_NO_DEVICE  (1) no accessory device is attached.
 * Callers treat any other value as a failure too. The numbers that the
 * notifications carry are the enumerations below.
 */
#ifndef KVP_CLIENT_STUB_API_H
#define KVP_CLIENT_STUB_API_H

#ifdef __cplusplus
extern "C" {
#endif

/* Results of the library's functions. */
enum kvp_result {
    KVP_SUCCESS = 0,
    KVP_ERROR_GENERAL = -1,  /* the service refused or could not do it */
    KVP_ERROR_INVALID = -2,  /* a bad argument or an unknown id */
    KVP_ERROR_NO_DEVICE = 1, /* no accessory device is attached */
};

/* Size of the path buffers that pushFile and receiveFile take, terminator included. */
#define KVP_PATH_BUFFER_SIZE 256

/*
 * The largest data, in bytes, that one sendData or sendSecureData may carry on
 * any link: a longer send is refused with KVP_ERROR_INVALID and nothing of it
 * is sent. A slower link may take less; a peer's maxAllowedDataSize is what
 * its link takes (never more than this), and the service refuses a longer
 * send on that link with KVP_ERROR_GENERAL.
 */
#define KVP_MAX_DATA_SIZE 1048576u

/*
 * A remote service agent as the service reports it: two numbers, then five
 * texts. The texts are owned by whoever hands the record over; a receiver that
 * keeps a record copies it.
 */
typedef struct kvp_peer_agent {
    unsigned int peerAgentId; /* the service's id of the remote agent */
    unsigned int accessoryId; /* the service's id of the remote device; see getPeerAccessory */
    char* peerId;             /* the remote agent's id as applications see it */
    char* appName;            /* name of the application that offers the remote agent */
    char* profileId;          /* id of the service profile the remote agent implements */
    char* profileVersion;     /* version of that service profile */
    char* deviceName;         /* name of the remote device */
} kvp_peer_agent_t;

/*
 * The companion record of a peer: what applications see of the remote device
 * beyond the peer record. Filled by getPeerAccessory.
 */
typedef struct kvp_peer_accessory {
    int transportType;               /* enum kvp_transport_type */
    unsigned int maxAllowedDataSize; /* largest data one sendData may carry over this link */
    char deviceAddress[KVP_PATH_BUFFER_SIZE];
    char productId[KVP_PATH_BUFFER_SIZE];
    char vendorId[KVP_PATH_BUFFER_SIZE];
} kvp_peer_accessory_t;

/*
 * The numbers that the notifications carry. Each situation has the number
 * under which an application tells it to its user by its proper name.
 */

/* How a peer search goes (kvp_OnPeerAgent). */
enum kvp_search_status {
    KVP_SEARCH_FOUND = 0,      /* one peer agent found; more may follow */
    KVP_SEARCH_NO_DEVICE = 1,  /* no device is attached */
    KVP_SEARCH_NONE_FOUND = 2, /* the device has no matching agent */
    KVP_SEARCH_TIMED_OUT = 3,  /* the device did not answer in time */
    KVP_SEARCH_ENDED = 4,      /* the search is over; every peer was reported */
};

/* A known peer agent changed (kvp_OnPeerAgentIndication). */
enum kvp_peer_change {
    KVP_PEER_AVAILABLE = 0, /* it registered */
    KVP_PEER_GONE = 1,      /* it went away */
};

/* The outcome of a connection request (kvp_OnServiceCreateConfirm). */
enum kvp_connection_status {
    KVP_CONNECTION_MADE = 0,
    KVP_CONNECTION_ALREADY_EXISTS = 1,     /* the agents are connected already, or the service
                                              profile allows no further connection */
    KVP_CONNECTION_DEVICE_UNREACHABLE = 2, /* no device is attached */
    KVP_CONNECTION_INVALID_PEER_AGENT = 3, /* the peer agent is unknown, gone, or of another
                                              profile or the same role */
    KVP_CONNECTION_NETWORK_ERROR = 4,      /* the link went down while the request was open */
    KVP_CONNECTION_NO_RESPONSE = 5,        /* the peer did not answer in time */
    KVP_CONNECTION_REJECTED = 6,           /* the peer refused */
};

/* Why a connection ended (kvp_OnServiceTerminationIndication). Connections
 * that end because the device is detached are not reported one by one: the
 * detach (kvp_OnDeviceStatus) ends them all. */
enum kvp_termination_reason {
    KVP_TERMINATION_CLOSED = 0,          /* one of its ends closed it */
    KVP_TERMINATION_DEVICE_DETACHED = 1, /* the device went away */
    KVP_TERMINATION_UNKNOWN = 2,
};

/* The device's link (kvp_OnDeviceStatus): its type, then its status. */
enum kvp_device_type {
    KVP_DEVICE_TYPE_BT = 4,
    KVP_DEVICE_TYPE_BLE = 8,
    KVP_DEVICE_TYPE_USB = 16,
    KVP_DEVICE_TYPE_WIFI = 32,
};
enum kvp_device_status {
    KVP_DEVICE_DETACHED = 0,
    KVP_DEVICE_ATTACHED = 1,
};

/* The transport of a device (kvp_peer_accessory_t). */
enum kvp_transport_type {
    KVP_TRANSPORT_BT = 0,
    KVP_TRANSPORT_BLE = 1,
    KVP_TRANSPORT_USB = 2,
    KVP_TRANSPORT_WIFI = 3,
};

/* The outcome of an authentication (kvp_OnAuthenticateIndication). */
enum kvp_authentication_status {
    KVP_AUTHENTICATED = 0,
    KVP_NOT_AUTHENTICATED = 1,
};

/* How a file transfer ended (kvp_OnSendComplete, kvp_OnReceiveComplete). */
enum kvp_file_status {
    KVP_FILE_DONE = 0,
    KVP_FILE_CHANNEL_IO = 1,      /* the other side could not read or write its file */
    KVP_FILE_IO = 2,              /* this side could not read or write its file */
    KVP_FILE_CANCELLED = 3,       /* this side's app cancelled it, or the sender cancelled */
    KVP_FILE_NO_RESPONSE = 4,     /* the receiver did not answer the offer in time */
    KVP_FILE_CONNECTION_LOST = 5, /* the device or the other app went away */
    KVP_FILE_REJECTED = 9,        /* the receiver refused the file (or was too busy to
                                     take it), or cancelled it while it was coming */
    KVP_FILE_NO_SPACE = 11,       /* the receiving side has no room for it */
};

/* What the service reports on its own (kvp_OnError): the code, with the value
 * it names. Either comes just before the device is reported detached. */
enum kvp_service_error {
    KVP_SERVICE_ERROR_DATA_LOST = 0,   /* data that the app sent on connection `value` had not
                                          reached the device when the link went down */
    KVP_SERVICE_ERROR_LINK_SILENT = 1, /* the device stopped answering (`value`: the device
                                          type); the link is given up */
};

typedef void (*kvp_OnRegisterServiceAgentConfirm_cb)(int result, unsigned int agentId);
typedef void (*kvp_OnDataIndication_cb)(unsigned int connectionId, unsigned short channelId,
                                        unsigned int length, const char* data);
typedef void (*kvp_OnServiceConnectionIndication_cb)(unsigned int agentId,
                                                     unsigned int connectionId,
                                                     const kvp_peer_agent_t* peer);
typedef void (*kvp_OnServiceTerminationIndication_cb)(unsigned int connectionId, int reason);
typedef void (*kvp_OnServiceCreateConfirm_cb)(unsigned int agentId, unsigned int connectionId,
                                              const kvp_peer_agent_t* peer, int status);
typedef void (*kvp_OnPeerAgent_cb)(unsigned int agentId, const kvp_peer_agent_t* peer, int status);
/* A send on this connection and channel was refused because the channel's
   queue for the link was full; there is room again. */
typedef void (*kvp_OnSpaceAvailable_cb)(unsigned int connectionId, unsigned short channelId);
typedef void (*kvp_OnError_cb)(unsigned int value, int errorCode);
typedef void (*kvp_OnDeregisterServiceAgentConfirm_cb)(int result, unsigned int agentId);
typedef void (*kvp_OnDeviceStatus_cb)(int deviceType, int status);
typedef void (*kvp_OnPeerAgentIndication_cb)(unsigned int agentId, const kvp_peer_agent_t* peer,
                                             int status);
typedef void (*kvp_OnAuthenticateIndication_cb)(unsigned int agentId, const kvp_peer_agent_t* peer,
                                                const char* token, int status);

/* The service notification table, in slot order. */
typedef struct kvp_notifications {
    kvp_OnRegisterServiceAgentConfirm_cb onRegisterServiceAgentConfirm;
    kvp_OnDataIndication_cb onDataIndication;
    kvp_OnServiceConnectionIndication_cb onServiceConnectionIndication;
    kvp_OnServiceTerminationIndication_cb onServiceTerminationIndication;
    kvp_OnServiceCreateConfirm_cb onServiceCreateConfirm;
    kvp_OnPeerAgent_cb onPeerAgent;
    kvp_OnSpaceAvailable_cb onSpaceAvailable;
    kvp_OnError_cb onError;
    kvp_OnDeregisterServiceAgentConfirm_cb onDeregisterServiceAgentConfirm;
    kvp_OnDeviceStatus_cb onDeviceStatus;
    kvp_OnPeerAgentIndication_cb onPeerAgentIndication;
    kvp_OnAuthenticateIndication_cb onAuthenticateIndication;
} kvp_notifications_t;

/* A peer offers a file: its transaction id, the file's name and the local agent it is for. */
typedef void (*kvp_OnSendFile_cb)(int transactionId, const char* fileName, unsigned int agentId);
typedef void (*kvp_OnSendComplete_cb)(int transactionId, const char* path, int status);
typedef void (*kvp_OnReceiveComplete_cb)(int transactionId, const char* path, int status);
/* Progress of a transfer in either direction, in percent (0 to 100). */
typedef void (*kvp_OnFileProgress_cb)(int transactionId, int progress);

/* The file-transfer notification table, in slot order. */
typedef struct kvp_ft_notifications {
    kvp_OnSendFile_cb onSendFile;
    kvp_OnSendComplete_cb onSendComplete;
    kvp_OnReceiveComplete_cb onReceiveComplete;
    kvp_OnFileProgress_cb onFileProgress;
} kvp_ft_notifications_t;

/* Non-zero while an accessory device is attached. */
int isKvpConnected(void);
int registerNotifications(kvp_notifications_t notifications);
void registerFTNotifications(kvp_ft_notifications_t notifications);
int deregisterNotifications(void);

/* Registers the calling app's agent of the service profile `profileId` (as its installed service
   profile declares it); the agent id comes with kvp_OnRegisterServiceAgentConfirm. */
int getRegisteredServiceAgent(char* profileId, int isConsumer);
int deRegisterServiceAgent(unsigned int agentId);

/* Searches the attached device for agents of the same profile and the opposite role; each is
   reported through kvp_OnPeerAgent (status 0), then the search ends with status 4 or fails with
   1-3. With no device attached the call itself fails with KVP_ERROR_NO_DEVICE. */
int findPeerAgent(unsigned int agentId);

/* Asks `peer` for a connection. Its outcome comes with
   kvp_OnServiceCreateConfirm, unless the call itself fails: it then returns
   KVP_ERROR_GENERAL (the service can't be reached, does not know the agent,
   or no device is attached). */
int createServiceConnection(unsigned int agentId, const kvp_peer_agent_t* peer);
int acceptServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer);
int rejectServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer);
/* Ends a connection; kvp_OnServiceTerminationIndication confirms it. Ending a
   connection that has ended already succeeds and changes nothing. */
int terminateServiceConnection(unsigned int connectionId);

/* Queues data for the peer. KVP_ERROR_GENERAL when the service refuses it, among
   other reasons because the channel's queue for the link is full: a link
   holds about a second of its bandwidth per channel. kvp_OnSpaceAvailable
   then tells when the channel has room again. */
int sendData(unsigned int connectionId, unsigned short channelId, unsigned int length,
             const char* data);
int sendSecureData(unsigned int connectionId, unsigned short channelId, unsigned int length,
                   const char* data);

/* Asks whether `peer` is authentic: the answer comes with kvp_OnAuthenticateIndication, unless
   the call itself fails (KVP_ERROR_NO_DEVICE with no device attached). */
int authenticatePeerAgent(unsigned int agentId, const kvp_peer_agent_t* peer);

/* Offers the file at `path` (a KVP_PATH_BUFFER_SIZE buffer) to `peer` on behalf of `agentId`.
   Returns the new transaction id, or KVP_ERROR_GENERAL (-1) on failure. */
int pushFile(char* path, const kvp_peer_agent_t* peer, unsigned int agentId);
/* Answers an offered file: accept (non-zero) saves it at `path` (a KVP_PATH_BUFFER_SIZE buffer),
   reject ignores `path`. */
int receiveFile(int transactionId, char* path, int accept);
/* Cancels a transfer in either direction; its completion callback follows
   with KVP_FILE_CANCELLED. */
int cancelFile(int transactionId);

/* Fills the companion record of the device `accessoryId` reported in a peer record. */
int getPeerAccessory(unsigned int accessoryId, kvp_peer_accessory_t* accessory);

#ifdef __cplusplus
}
#endif

#endif
