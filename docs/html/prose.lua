-- Removes from a page what is not prose: code, and the diagrams.
local function nothing()
    return {}
end

return { { Code = nothing, CodeBlock = nothing, RawInline = nothing, RawBlock = nothing } }
