// What the page host (the process that shows the app's page) and its web
// extension (loaded into the engine's web process, where the page's scripts
// and the plug-ins run) tell each other. Both sides use these names only.
//
//   extension -> host   kStarted (i pid)            the plug-ins run in process pid
//   extension -> host   kEnded (iu code, reason)    the app has ended: its frames are
//                                                   unloaded, its plug-ins stopped
//   host -> extension   kStop (iu code, reason)     end the app now; the reply comes
//                                                   once it has ended (kEnded follows)
//   host -> extension   kCollectGarbage ()          a full garbage collection; the
//                                                   reply comes when it is done
//
// The reasons are the numbers of Kv::Runtime::ExitReason.
#ifndef KV_PAGE_PAGE_PROTOCOL_H
#define KV_PAGE_PAGE_PROTOCOL_H

namespace Kv {
namespace Page {

inline constexpr char kStarted[] = "kv.started";
inline constexpr char kEnded[] = "kv.ended";
inline constexpr char kStop[] = "kv.stop";
inline constexpr char kCollectGarbage[] = "kv.collect-garbage";

inline constexpr char kStartedType[] = "(i)";
inline constexpr char kEndedType[] = "(iu)";
inline constexpr char kStopType[] = "(iu)";

}  // namespace Page
}  // namespace Kv

#endif
