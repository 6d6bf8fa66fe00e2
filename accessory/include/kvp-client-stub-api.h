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
 * Results: 0 is success; the known failures are
 *   KVP_ERROR_GENERAL   (-1) the service refused or could not do it,
 *   KVP_ERROR_INVALID   (-2) a bad argument or an unknown id,
 *   KVP_ERROR_NO_DEVICE  (1) no accessory device is attached.
 * Callers treat any other value as a failure too.
 */
#ifndef KVP_CLIENT_STUB_API_H
#define KVP_CLIENT_STUB_API_H

#ifdef __cplusplus
extern "C" {
#endif

#define KVP_SUCCESS 0
#define KVP_ERROR_GENERAL (-1)
#define KVP_ERROR_INVALID (-2)
#define KVP_ERROR_NO_DEVICE 1

/* Size of the path buffers that pushFile and receiveFile take, terminator included. */
#define KVP_PATH_BUFFER_SIZE 256

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
    int transportType;               /* 0 bt, 1 ble, 2 usb, 3 wifi */
    unsigned int maxAllowedDataSize; /* largest data one sendData may carry over this link */
    char deviceAddress[KVP_PATH_BUFFER_SIZE];
    char productId[KVP_PATH_BUFFER_SIZE];
    char vendorId[KVP_PATH_BUFFER_SIZE];
} kvp_peer_accessory_t;

/* Peer search status (kvp_OnPeerAgent): 0 found; 1 no device; 2 none found; 3 timed out; 4 search
 * ended. */
/* Peer change status (kvp_OnPeerAgentIndication): 0 available; 1 gone. */
/* Connection status (kvp_OnServiceCreateConfirm): 0 made; 1 already exists; 2 network error;
   3 device unreachable; 4 invalid peer agent; 5 no response; 6 rejected. */
/* Termination reason (kvp_OnServiceTerminationIndication): 0 peer disconnected; 1 device detached;
 * 2 unknown. */
/* Device status (kvp_OnDeviceStatus): type 4 bt, 8 ble, 16 usb, 32 wifi; status 1 attached, 0
 * detached. */
/* File transfer status (kvp_OnSendComplete, kvp_OnReceiveComplete): 0 done; 1 file i/o; 2 peer
   busy; 3 channel i/o; 4 no response; 5 connection lost; 9 rejected; 11 no space. */

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
   1-3. */
int findPeerAgent(unsigned int agentId);

int createServiceConnection(unsigned int agentId, const kvp_peer_agent_t* peer);
int acceptServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer);
int rejectServiceConnection(unsigned int agentId, unsigned int connectionId,
                            const kvp_peer_agent_t* peer);
int terminateServiceConnection(unsigned int connectionId);

int sendData(unsigned int connectionId, unsigned short channelId, unsigned int length,
             const char* data);
int sendSecureData(unsigned int connectionId, unsigned short channelId, unsigned int length,
                   const char* data);

int authenticatePeerAgent(unsigned int agentId, const kvp_peer_agent_t* peer);

/* Offers the file at `path` (a KVP_PATH_BUFFER_SIZE buffer) to `peer` on behalf of `agentId`.
   Returns the new transaction id, or -1 on failure. */
int pushFile(char* path, const kvp_peer_agent_t* peer, unsigned int agentId);
/* Answers an offered file: accept (non-zero) saves it at `path` (a KVP_PATH_BUFFER_SIZE buffer),
   reject ignores `path`. */
int receiveFile(int transactionId, char* path, int accept);
int cancelFile(int transactionId);

/* Fills the companion record of the device `accessoryId` reported in a peer record. */
int getPeerAccessory(unsigned int accessoryId, kvp_peer_accessory_t* accessory);

#ifdef __cplusplus
}
#endif

#endif
