-- Writes each mermaid diagram of a page to a file that is named like its picture.
function Pandoc(document)
    local folder = pandoc.utils.stringify(document.meta.folder)
    document:walk({
        CodeBlock = function(block)
            if block.classes[1] ~= "mermaid" then return nil end
            local file = io.open(folder .. "/diagram-" .. pandoc.sha1(block.text):sub(1, 12) .. ".mmd", "w")
            file:write(block.text, "\n")
            file:close()
        end,
    })
end
