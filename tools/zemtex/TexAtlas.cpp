#include "TexAtlas.h"

#include <algorithm>

#include <tinyxml.h>

namespace ZemTex
{
    bool PackAtlas(std::vector<AtlasItem>& items, uint32_t padding, uint32_t width, uint32_t& outWidth,
                   uint32_t& outHeight, std::string& error)
    {
        if (items.empty())
        {
            error = "no pictures to pack";
            return false;
        }
        for (size_t i = 0; i < items.size(); ++i)
            for (size_t j = i + 1; j < items.size(); ++j)
                if (items[i].szName == items[j].szName)
                {
                    error = "two pictures are named \"" + items[i].szName + "\"";
                    return false;
                }
        std::sort(items.begin(), items.end(), [](const AtlasItem& a, const AtlasItem& b) {
            if (a.kImage.uHeight != b.kImage.uHeight) return a.kImage.uHeight > b.kImage.uHeight;
            return a.szName < b.szName;
        });
        uint64_t area = 0;
        uint32_t widest = 0;
        for (const AtlasItem& item : items)
        {
            area += uint64_t(item.kImage.uWidth + padding) * (item.kImage.uHeight + padding);
            widest = std::max(widest, item.kImage.uWidth + padding);
        }
        if (width == 0)
        {
            width = 4;
            while (uint64_t(width) * width < area || width < widest) width *= 2;
        }
        if (widest > width + padding)
        {
            error = "a picture of " + std::to_string(widest - padding) + " texels does not fit a width of " +
                    std::to_string(width);
            return false;
        }
        uint32_t x = 0, y = 0, shelf = 0;
        for (AtlasItem& item : items)
        {
            if (x + item.kImage.uWidth > width)
            {
                x = 0;
                y += shelf + padding;
                shelf = 0;
            }
            item.uX = x;
            item.uY = y;
            x += item.kImage.uWidth + padding;
            shelf = std::max(shelf, item.kImage.uHeight);
        }
        outWidth = (width + 3) / 4 * 4;
        outHeight = std::max(4u, (y + shelf + 3) / 4 * 4);
        if (outHeight > 16384 || outWidth > 16384)
        {
            error = "the atlas would be " + std::to_string(outWidth) + "x" + std::to_string(outHeight) +
                    ", above the 16384 texels a texture can have";
            return false;
        }
        std::sort(items.begin(), items.end(), [](const AtlasItem& a, const AtlasItem& b) { return a.szName < b.szName; });
        return true;
    }

    Image ComposeAtlas(const std::vector<AtlasItem>& items, uint32_t width, uint32_t height)
    {
        Image atlas(width, height);
        for (const AtlasItem& item : items) Blit(item.kImage, atlas, item.uX, item.uY);
        return atlas;
    }

    std::string ImagesetXml(const std::string& name, const std::string& texture, const std::vector<AtlasItem>& items)
    {
        TiXmlDocument doc;
        doc.LinkEndChild(new TiXmlDeclaration("1.0f", "UTF-8", ""));
        TiXmlElement* root = new TiXmlElement("Imageset");
        root->SetAttribute("name", name.c_str());
        root->SetAttribute("texture", texture.c_str());
        for (const AtlasItem& item : items)
        {
            TiXmlElement* image = new TiXmlElement("Image");
            image->SetAttribute("name", item.szName.c_str());
            image->SetAttribute("left", static_cast<int>(item.uX));
            image->SetAttribute("top", static_cast<int>(item.uY));
            image->SetAttribute("right", static_cast<int>(item.uX + item.kImage.uWidth));
            image->SetAttribute("bottom", static_cast<int>(item.uY + item.kImage.uHeight));
            root->LinkEndChild(image);
        }
        doc.LinkEndChild(root);
        TiXmlPrinter printer;
        printer.SetIndent("    ");
        doc.Accept(&printer);
        return printer.CStr();
    }
}
