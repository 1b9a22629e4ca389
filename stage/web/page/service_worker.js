// Keeps the page's own files, so that it opens, and says that it is not connected, while the server is away. The show itself
// is never kept: what is old must not look new.

const Shell = 'shell';
const Kept = /\.(html|js|css|svg|webmanifest)$|\/$/;

self.addEventListener('install', (event) => {
  event.waitUntil(caches.open(Shell).then((cache) => cache.addAll([
    './', 'base.css', 'perform.css', 'edit.css', 'score.css', 'icon.svg', 'manifest.webmanifest', 'main.js', 'connection.js', 'connection_sign.js',
    'controls_panel.js', 'dialogs.js', 'edit_form.js', 'edit_kinds.js', 'edit_view.js', 'elements.js', 'flow_picture.js', 'groups_panel.js', 'level_meter.js', 'keyboard_door.js',
    'notice.js', 'operator_keys.js', 'pedals_panel.js', 'perform_view.js', 'place_panel.js', 'press_list.js', 'score_engraver.js', 'score_flow.js', 'score_pages.js', 'score_sheet.js', 'score_view.js', 'score_worker.js', 'screen_device.js', 'server_clock.js',
    'settings_panel.js', 'setup_view.js', 'show_model.js', 'song_time.js', 'transport.js', 'version_list.js', 'wires_panel.js',
  ])).then(() => self.skipWaiting()));
});

self.addEventListener('activate', (event) => event.waitUntil(self.clients.claim()));

async function answer(request) {
  const cache = await caches.open(Shell);
  try {
    const fresh = await fetch(request);
    if (fresh.ok) await cache.put(request, fresh.clone());
    return fresh;
  } catch (problem) {
    const kept = await cache.match(request, { ignoreSearch: true });
    if (kept !== undefined) return kept;
    throw problem;
  }
}

self.addEventListener('fetch', (event) => {
  const { request } = event;
  const url = new URL(request.url);
  if (request.method !== 'GET' || url.origin !== location.origin || url.pathname.includes('/api/') || !Kept.test(url.pathname)) return;
  event.respondWith(answer(request));
});
