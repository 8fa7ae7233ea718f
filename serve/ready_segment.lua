-- Sends a complete segment of HLS or CMAF, or a header of CMAF, from the web server itself. A process for each request
-- would take most of the time.
--
-- It decides nothing new: the request program has left a pass (webapi/access/pass.h) when it sent an earlier segment of
-- the stream to the same link. The pass counts while all files that decided then are the same. For any other request,
-- this script returns nothing, and the web server starts the request program.

local root = os.getenv("ORVO_SYSROOT") or ""
local headers = lighty.r.req_header

-- The parameters of the query, or nil unless each one is known, plain and there once. A value may stand in quotes.
local function parameters_of(query)
  local known = { api = true, version = true, method = true, format = true, stream_id = true, fragment_id = true,
    rendition = true, segment = true, _sid = true, ticket = true }
  local found, rest = {}, query .. "&"
  while rest ~= "" do
    local name, text, more = rest:match("^([%w_]+)=([%w_.%%-]*)&(.*)$")
    local value = text and (text:match("^%%22([%w_.-]*)%%22$") or text:match("^[%w_.-]*$"))
    if not value or not known[name] or found[name] then
      return nil
    end
    found[name], rest = value, more
  end
  return found
end

-- Comes the request from this server's own pages, or from a program that is no browser? The web server has checked the
-- host. All other requests are for the request program.
local function is_own()
  local site, referer = headers["Sec-Fetch-Site"], headers["Referer"]
  local own = lighty.r.req_attr["uri.scheme"] .. "://" .. (headers["Host"] or "") .. "/"
  if headers["Origin"] or (site and site ~= "same-origin" and site ~= "none") then
    return false
  end
  return not referer or referer:sub(1, #own) == own
end

local function is_plain()
  return lighty.r.req_attr["request.method"] == "GET" and not headers["Range"] and not headers["If-None-Match"]
    and not headers["If-Modified-Since"] and not headers["If-Range"]
end

-- Does the player report that it ran out of film? The request program keeps such reports.
local function is_starved()
  for _, name in ipairs({ "CMCD-Status", "CMCD-Request" }) do
    if ("," .. (headers[name] or ""):gsub(" ", "") .. ","):find(",bs,", 1, true) then
      return true
    end
  end
  return false
end

-- As in pass.cpp.
local function state_of(path)
  local file = lighty.stat(path)
  return file and ("%d %d %d %d"):format(file.st_ino, file.st_size, file.st_mtime, file.st_ctime) or "-"
end

-- Compares two texts in a time that does not depend on where they differ.
local function same(one, other)
  local difference = #one ~ #other
  for at = 1, math.min(#one, #other) do
    difference = difference | (one:byte(at) ~ other:byte(at))
  end
  return difference == 0
end

-- Belongs the folder of the passes to the user of the service, and is it closed to others?
local function is_private(folder)
  local found, own = lighty.stat(folder), lighty.stat(root .. "/run/mirevo/lighttpd.conf")
  return found and own and found.is_dir and found.st_uid == own.st_uid and found.st_mode & 63 == 0
end

-- As SharedStatePath does. A link to storage that is missing is no folder; then nobody has a pass that counts.
local function accounts_file()
  local folder = root .. "/var/packages/Mirevo/etc"
  return (lighty.stat(folder .. "/shared") and folder .. "/shared" or folder) .. "/accounts"
end

-- The stream's folder if the pass counts for this link and this sealed ticket.
local function folder_for(id, link, sealed)
  local tickets = root .. "/tmp/Mirevo/tickets"
  local ticket = tickets .. "/" .. id
  local pass = is_private(tickets) and io.open(ticket .. ".pass", "r")
  if not pass then
    return nil
  end
  local version, folder, its_link = pass:read("l", "l", "l")
  local states = { pass:read("l", "l", "l") }
  local its_sealed = pass:read("l")
  pass:close()
  local counts = version == "pass 1" and states[1] == state_of(ticket) and states[1] ~= "-"
    and states[2] == state_of(accounts_file())
    and states[3] == state_of(root .. "/run/mirevo/lighttpd.conf")
    and (its_link == "" or (link ~= nil and same(link, its_link)))
    and (sealed == nil or (its_sealed ~= nil and same(sealed, its_sealed)))
  return counts and folder or nil
end

-- Replaces the beginning of an existing file in one write. Its time becomes now.
local function overwrite(path, text)
  local file = io.open(path, "r+b")
  if not file then
    return false
  end
  file:write(text)
  return file:close()
end

-- A piece's number; nil for any other text.
local function number_of(text)
  return text and text:match("^%d+$") and #text <= 7 and tonumber(text) or nil
end

-- The piece that a request names, if it may be sent: its path and media type, its number if it has one, and the folders
-- that remember the request.
local pieces = {}

-- A segment is complete if the next one exists.
function pieces.hls(folder, asked)
  local number = not asked.rendition and not asked.segment and number_of(asked.fragment_id)
  if not number or not lighty.stat(("%s/slice-%05d.ts"):format(folder, number + 1)) then
    return nil
  end
  return { path = ("%s/slice-%05d.ts"):format(folder, number), type = "video/mp2t", number = number, folders = { folder } }
end

-- A segment that is being made has another name.
function pieces.cmaf(folder, asked)
  local rendition = not asked.fragment_id and (asked.rendition or ""):match("^[%w-]+$")
  if not rendition then
    return nil
  end
  local own = folder .. "/" .. rendition
  local is_picture = rendition == "copy-video" or rendition:match("^h264%-")
  local piece = { type = is_picture and "video/mp4" or "audio/mp4", folders = { folder } }
  if asked.segment == "init" then
    piece.path = own .. "/init.mp4"
    return piece
  end
  local number = number_of(asked.segment)
  if not number then
    return nil
  end
  piece.path, piece.number, piece.folders[2] = ("%s/%05d.m4s"):format(own, number), number, own
  piece.timing = "wait;dur=0"
  return piece
end

-- Has the request program asked the other boxes of the cluster to begin the blocks after this segment's
-- (webapi/streams/warm_runs.cpp)? Without a cluster, nobody has to.
local function is_warmed(piece)
  local file = piece.number and io.open(piece.folders[#piece.folders] .. "/warmed_blocks", "r")
  if not file then
    return true
  end
  local blocks = file:read("a") or ""
  file:close()
  for first, last in blocks:gmatch("(%d+) (%d+)") do
    if piece.number >= tonumber(first) and piece.number <= tonumber(last) then
      return true
    end
  end
  return false
end

-- As the request program does: the transcoder runs ahead of this number, and the stream counts as watched.
local function remember(piece)
  for _, folder in ipairs(piece.folders) do
    if piece.number and not overwrite(folder .. "/requested", ("%07d"):format(piece.number)) then
      return false
    end
    if not overwrite(folder .. "/access_status", "\n") then
      return false
    end
  end
  return true
end

local function send(piece, file)
  lighty.r.resp_header["Content-Type"] = piece.type
  lighty.r.resp_header["Cache-Control"] = "private, max-age=600"
  lighty.r.resp_header["ETag"] = ('"%d-%d-%d"'):format(file.st_ino, file.st_size, file.st_mtime)
  lighty.r.resp_header["Last-Modified"] = os.date("!%a, %d %b %Y %H:%M:%S GMT", file.st_mtime)
  if piece.timing then
    lighty.r.resp_header["Server-Timing"] = piece.timing
  end
  lighty.r.resp_body.set({ { filename = piece.path } })
  return 200
end

local asked = parameters_of(lighty.r.req_attr["uri.query"] or "")
local find = asked and pieces[asked.format]
if not find or asked.api ~= "ORVO.Mirevo2.Streaming" or asked.version ~= "1" or asked.method ~= "stream"
  or not is_plain() or not is_own() or is_starved() then
  return
end
local id = asked.stream_id or ""
if #id ~= 41 or not id:match("^[0-9a-f]+_%w+$") then
  return
end
local folder = folder_for(id, asked._sid, asked.ticket)
local piece = folder and find(folder, asked)
local file = piece and lighty.stat(piece.path)
if file and file.is_file and is_warmed(piece) and remember(piece) then
  return send(piece, file)
end
