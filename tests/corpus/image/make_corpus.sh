#!/usr/bin/env bash
# Writes the peer-made inputs of the image tests from source-alpha.png and source-opaque.png
# (24x16, drawn by the test pattern of tests/image/ImageTestSupport.h). Needs ImageMagick,
# GraphicsMagick and netpbm. For each input NAME.EXT there is NAME.rgba: the pixels ImageMagick
# reads from it, 8-bit RGBA, rows top to bottom; the tests compare our decoder with those.
set -euo pipefail
cd "$(dirname "$0")"

expect() {  # expect FILE: ImageMagick's reading of FILE as raw RGBA
  convert "$1" -depth 8 "rgba:${1%.*}.rgba"
}

# TIFF layouts: the strip path (8-bit contiguous grey/RGB) and libtiff's general path.
convert source-alpha.png -define tiff:alpha=unassociated -compress None tiff-rgba-plain.tif
convert source-alpha.png -define tiff:alpha=associated -compress LZW tiff-rgba-associated.tif
convert source-opaque.png -depth 16 -compress Zip tiff-rgb16-deflate.tif
convert source-opaque.png -colors 16 -type Palette tiff-palette.tif
convert source-opaque.png -colorspace Gray -compress None tiff-grey.tif
convert source-opaque.png -define tiff:tile-geometry=16x16 -endian MSB tiff-tiled-msb.tif
convert source-opaque.png -compress JPEG -quality 95 tiff-ycbcr-jpeg.tif
for f in tiff-*.tif; do expect "$f"; done

# Pictures: netpbm (8-bit indexed PackBitsRect), ImageMagick and GraphicsMagick (32-bit
# DirectBitsRect, pack type 4; the alpha one with four components), ImageMagick's QuickTime
# JPEG form (0x8200) and a palette picture.
convert source-opaque.png -colors 64 +dither ppm:- | ppmtopict > pict-ppmtopict.pict
convert source-opaque.png pict-imagemagick.pict
convert source-alpha.png pict-imagemagick-alpha.pict
gm convert source-opaque.png pict-graphicsmagick.pict
convert source-opaque.png -compress JPEG pict-imagemagick-jpeg.pict
convert source-opaque.png -colors 8 -type Palette pict-imagemagick-palette.pict
for f in pict-*.pict; do expect "$f"; done
# ImageMagick drops the alpha plane on reading; the alpha picture is compared with its source.
convert source-alpha.png -depth 8 rgba:pict-imagemagick-alpha.rgba
