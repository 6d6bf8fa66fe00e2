// Type declarations for script apps: webapis.kv and the runtime object
// (kv.d.ts), and the globals that the script host gives (console, timers).
// docs/api.md describes every member.
//
// Use them for type-checking a script app, for example:
//   tsc --noEmit --allowJs --checkJs --lib es2020 --moduleDetection force \
//       types/index.d.ts myapp/main.js
// They declare the host's globals themselves: check without the DOM library.
// An app that is a page checks against page.d.ts instead.
/// <reference path="kv.d.ts" />

interface Console {
    /** Writes the arguments, joined by blanks, to stdout. */
    log(...data: any[]): void;
    info(...data: any[]): void;
    /** Writes to stderr. */
    warn(...data: any[]): void;
    error(...data: any[]): void;
}

declare var console: Console;

/** Calls `callback(...args)` once after `ms` milliseconds; answers the timer id. */
declare function setTimeout<A extends any[]>(callback: (...args: A) => void, ms?: number, ...args: A): number;
/** Calls `callback(...args)` every `ms` milliseconds; answers the timer id. */
declare function setInterval<A extends any[]>(callback: (...args: A) => void, ms?: number, ...args: A): number;
declare function clearTimeout(id?: number): void;
declare function clearInterval(id?: number): void;
