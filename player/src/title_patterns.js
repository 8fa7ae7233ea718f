// What people write into the names of film files. The page and the televisions' server read the same table
// (webapi/library/film_title.h), so its value is JSON, and its expressions are of the kind that both know. Upper and lower
// case are the same. "copy": words with which people describe a copy of a film; what follows is not part of its title.
export const PATTERNS = {
  "ending": "\\.[a-z0-9]{2,4}$",
  "numbered": [
    "^(.*?)[\\s._-]*\\bs(\\d{1,2})[\\s._-]*e(\\d{1,3})(?:-?e\\d{1,3})*(?=$|[\\s._\\])-])[\\s._-]*(.*)$",
    "^(.*?)[\\s._-]*\\b(\\d{1,2})x(\\d{2,3})(?=$|[\\s._\\])-])[\\s._-]*(.*)$"
  ],
  "seasonFolder": "^(?:season|series|staffel|saison|s)[\\s._-]*(\\d{1,2})$",
  "leadingNumber": "^(?:e|ep|episode|folge)?[\\s._-]*(\\d{1,3})(?:[\\s._-]+(.*))?$",
  "yearOfShow": "[\\s._]*\\(?(?:19|20)\\d\\d\\)?$",
  "year": "^(.*?[^\\s._([-])[\\s._-]*[\\s._([](18[89]\\d|19\\d\\d|20\\d\\d)(?=$|[\\s._)\\]-]).*$",
  "lines": "[\\s._[(-](?:4320|2160|1440|1080|720|576|480)[pi](?=$|[\\s._\\])-])",
  "copy": "[\\s._-]*[\\s._[(-](?:\\d{3,4}[pi]|4k|uhd|hdr(?:10)?|blu-?ray|b[dr]rip|web(?:-?dl|-?rip)?|hdtv|dvd(?:rip)?|remux|[xh]\\.?26[45]|hevc|av1|xvid|10bit|proper|extended|unrated)(?=$|[\\s._\\])-]).*$"
};
