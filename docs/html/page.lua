-- Turns the Markdown of GitHub into pages that refer to each other: links to Markdown files become links to their pages, and
-- links to public headers become links to the reference. The schema files are copied and keep their names. Other files of the project are not part of the documents; of a link
-- to them, the text remains. Diagrams become the pictures that docs/make-pictures has rendered.
local page = os.getenv("MARVO_PAGE")
local folder = page:match("^(.*/)[^/]*$") or ""
local root = folder:gsub("[^/]+/", "../")

-- The name in the project of a target that is relative to this page.
local function resolve(target)
    local parts = {}
    for part in (folder .. target):gmatch("[^/]+") do
        if part == ".." then
            table.remove(parts)
        elseif part ~= "." then
            table.insert(parts, part)
        end
    end
    return table.concat(parts, "/")
end

local function exists(file)
    local handle = io.open(file)
    if handle then handle:close() end
    return handle ~= nil
end

local function page_of(file)
    if exists(file .. "/README.md") then file = file .. "/README.md" end
    if not file:match("%.md$") then return nil end
    return (file:gsub("README%.md$", "index.html"):gsub("%.md$", ".html"))
end

local function reference_of(file)
    local header = file:match("^include/marvo/([^/]+%.h[p]*)$")
    if header == nil then return nil end
    return "reference/" .. header:gsub("_", "__"):gsub("%.", "_8") .. ".html"
end

local function copy_of(file)
    if file:match("^docs/schema$") or file:match("^docs/schema/") then return file end
    return nil
end

function Link(link)
    if link.target:match("^%a[%a%d+.-]*:") or link.target:match("^#") then return nil end
    local target, anchor = link.target:match("^([^#]*)(.*)$")
    local file = resolve(target)
    if not exists(file) then error(page .. ": the target " .. link.target .. " does not exist") end
    local address = page_of(file) or reference_of(file) or copy_of(file)
    if address == nil then return link.content end
    link.target = root .. address .. anchor
    return link
end

-- Wide tables scroll by themselves.
function Table(element)
    return pandoc.Div({ element }, { class = "table" })
end

function CodeBlock(block)
    if block.classes[1] ~= "mermaid" then return nil end
    local picture = "docs/pictures/diagram-" .. pandoc.sha1(block.text):sub(1, 12) .. ".svg"
    if not exists(picture) then error(page .. ": a diagram has changed; run docs/make-pictures") end
    return pandoc.Para({ pandoc.Image("diagram", root .. picture) })
end
