// A subtitle with styles for films of 640 x 360 pixels.

// FFmpeg's library for subtitles depends on it.
export const FONT = '/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf';

// A red word in the upper left part of the picture, from second 1 to 50.
export const redWord = `[Script Info]
ScriptType: v4.00+
PlayResX: 640
PlayResY: 360

[V4+ Styles]
Format: Name, Fontname, Fontsize, PrimaryColour, SecondaryColour, OutlineColour, BackColour, Bold, Italic, Underline, StrikeOut, ScaleX, ScaleY, Spacing, Angle, BorderStyle, Outline, Shadow, Alignment, MarginL, MarginR, MarginV, Encoding
Style: Red,DejaVu Sans,80,&H000000FF,&H000000FF,&H0,&H0,0,0,0,0,100,100,0,0,1,0,0,7,0,0,0,1

[Events]
Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text
Dialogue: 0,0:00:01.00,0:00:50.00,Red,,0,0,0,,{\\pos(100,100)}\u2588\u2588\u2588
`;
