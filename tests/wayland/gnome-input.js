// Keyboard and pointer input for a headless GNOME Shell, through Mutter's RemoteDesktop D-Bus interface (the
// session bus of the shell). Runs its commands in one remote-desktop session, which ends with the script.
//
// usage: gjs gnome-input.js COMMAND...
//   key KEYSYM      presses and releases the key (hexadecimal X keysym: ff0d is Return, ff09 Tab)
//   move X Y        moves the pointer to (X, Y) in stage coordinates
//   press, release  the left button
//   hold            keeps the session, and with it the seat's keyboard and pointer, until the script is ended:
//                   a headless shell's seat has no keyboard of its own, and without one no client gets the
//                   keyboard focus, nor the clipboard that comes with it
//
// Absolute motion needs a screen-cast stream; relative motion does not, so a move first pushes the pointer
// into the top left corner, where it stops, and then moves it by (X, Y).
const { Gio, GLib } = imports.gi;

const bus = Gio.DBus.session;
const service = 'org.gnome.Mutter.RemoteDesktop';
const sessionInterface = 'org.gnome.Mutter.RemoteDesktop.Session';
const leftButton = 0x110; // BTN_LEFT

function call(path, iface, method, parameters, replyType) {
    return bus.call_sync(service, path, iface, method, parameters,
        replyType ? new GLib.VariantType(replyType) : null, Gio.DBusCallFlags.NONE, 10000, null);
}

const session = call('/org/gnome/Mutter/RemoteDesktop', 'org.gnome.Mutter.RemoteDesktop', 'CreateSession', null,
    '(o)').deepUnpack()[0];
const send = (method, parameters) => call(session, sessionInterface, method, parameters, null);
send('Start', null);

const args = ARGV.slice();
while (args.length > 0) {
    const command = args.shift();
    if (command === 'key') {
        const keysym = parseInt(args.shift(), 16);
        send('NotifyKeyboardKeysym', new GLib.Variant('(ub)', [keysym, true]));
        send('NotifyKeyboardKeysym', new GLib.Variant('(ub)', [keysym, false]));
    } else if (command === 'move') {
        const x = Number(args.shift());
        const y = Number(args.shift());
        send('NotifyPointerMotionRelative', new GLib.Variant('(dd)', [-100000, -100000]));
        send('NotifyPointerMotionRelative', new GLib.Variant('(dd)', [x, y]));
    } else if (command === 'hold') {
        new GLib.MainLoop(null, false).run();
    } else if (command === 'press' || command === 'release') {
        send('NotifyPointerButton', new GLib.Variant('(ib)', [leftButton, command === 'press']));
    } else {
        printerr(`gnome-input.js: unknown command ${command}`);
        send('Stop', null);
        imports.system.exit(2);
    }
}
send('Stop', null);
