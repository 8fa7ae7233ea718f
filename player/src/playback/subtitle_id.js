// The subtitle's id in the address of a playlist.
export function subtitleIdOf(address) {
  const id = new URL(address, 'http://localhost/').searchParams.get('subtitle_id') ?? '';
  return id.startsWith('"') && id.endsWith('"') ? id.slice(1, -1) : id;
}
