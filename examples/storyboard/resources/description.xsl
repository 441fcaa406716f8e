<?xml version="1.0"?>
<!-- Turns the description of a storyboard project into one HTML page that needs nothing beside it. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">

  <xsl:output method="xml" encoding="UTF-8" omit-xml-declaration="yes"/>

  <xsl:key name="clip" match="/storyboard/clips/clip" use="@id"/>
  <xsl:key name="source" match="/storyboard/sources/source" use="@id"/>
  <xsl:key name="bin" match="/storyboard/bins/bin" use="@id"/>

  <xsl:template match="/storyboard">
    <html lang="en">
      <head>
        <meta charset="utf-8"/>
        <meta name="viewport" content="width=device-width, initial-scale=1"/>
        <title>
          <xsl:call-template name="title"/>
        </title>
        <style><xsl:call-template name="style"/></style>
      </head>
      <body>
        <header>
          <p class="kicker">Storyboard</p>
          <h1>
            <xsl:call-template name="title"/>
          </h1>
          <ul class="totals">
            <xsl:call-template name="total">
              <xsl:with-param name="count" select="count(bins/bin[@kind = 'folder'])"/>
              <xsl:with-param name="noun" select="'folder'"/>
            </xsl:call-template>
            <xsl:call-template name="total">
              <xsl:with-param name="count" select="count(bins/bin[@kind = 'collection'])"/>
              <xsl:with-param name="noun" select="'collection'"/>
            </xsl:call-template>
            <xsl:call-template name="total">
              <xsl:with-param name="count" select="count(clips/clip)"/>
              <xsl:with-param name="noun" select="'clip'"/>
            </xsl:call-template>
            <xsl:call-template name="total">
              <xsl:with-param name="count" select="count(sources/source)"/>
              <xsl:with-param name="noun" select="'source'"/>
            </xsl:call-template>
            <li>
              <b>
                <xsl:call-template name="size">
                  <xsl:with-param name="bytes" select="sum(sources/source/@size)"/>
                </xsl:call-template>
              </b>
              <span>of content</span>
            </li>
          </ul>
          <xsl:if test="bins/*[2]">
            <nav>
              <xsl:for-each select="bins/bin">
                <a href="#{@id}">
                  <xsl:call-template name="binName"/>
                </a>
              </xsl:for-each>
            </nav>
          </xsl:if>
        </header>
        <main>
          <xsl:apply-templates select="bins/*"/>
          <xsl:if test="sources/source">
            <xsl:apply-templates select="sources"/>
          </xsl:if>
        </main>
        <footer>Lengths that are not known count as nothing in a timeline. Times are UTC.</footer>
      </body>
    </html>
  </xsl:template>

  <xsl:template match="again">
    <section class="again">
      <h2>
        <xsl:for-each select="key('bin', @bin)">
          <xsl:call-template name="binName"/>
        </xsl:for-each>
        <xsl:text> </xsl:text>
        <small><a href="#{@bin}">once more</a></small>
      </h2>
    </section>
  </xsl:template>

  <xsl:template match="bin">
    <xsl:variable name="clips" select="key('clip', play/@clip)"/>
    <section id="{@id}">
      <h2>
        <span class="binKind"><xsl:value-of select="@kind"/></span>
        <xsl:call-template name="binName"/>
        <xsl:text> </xsl:text>
        <small>
          <xsl:call-template name="counted">
            <xsl:with-param name="count" select="count(play)"/>
            <xsl:with-param name="noun" select="'clip'"/>
          </xsl:call-template>
        </small>
      </h2>
      <xsl:if test="$clips/range/@length">
        <div class="timeline">
          <xsl:for-each select="play">
            <xsl:variable name="clip" select="key('clip', @clip)"/>
            <xsl:if test="$clip/range/@length">
              <span class="{$clip/format/@kind}" style="flex-grow:{$clip/range/@length}" title="{$clip/@path}">
                <xsl:text>&#160;</xsl:text>
              </span>
            </xsl:if>
          </xsl:for-each>
        </div>
      </xsl:if>
      <xsl:if test="play">
        <div class="wide">
          <table>
            <thead>
              <tr>
                <th class="number">#</th>
                <th>Clip</th>
                <th>Kind</th>
                <th>Format</th>
                <th class="number">From</th>
                <th class="number">Length</th>
                <th>Follows by</th>
                <th class="number">Size</th>
              </tr>
            </thead>
            <tbody>
              <xsl:apply-templates select="play"/>
            </tbody>
          </table>
        </div>
      </xsl:if>
      <xsl:if test="not(play)">
        <p class="none">No clips.</p>
      </xsl:if>
    </section>
  </xsl:template>

  <xsl:template match="play">
    <xsl:variable name="clip" select="key('clip', @clip)"/>
    <xsl:variable name="source" select="key('source', $clip/@source)"/>
    <tr>
      <td class="number"><xsl:value-of select="position()"/></td>
      <td class="path">
        <xsl:value-of select="$clip/@path"/>
        <xsl:if test="$clip/@path != $source/@path">
          <small>
            <xsl:text>content of </xsl:text>
            <a href="#{$source/@id}"><xsl:value-of select="$source/@path"/></a>
          </small>
        </xsl:if>
      </td>
      <td><span class="kind {$clip/format/@kind}"><xsl:value-of select="$clip/format/@kind"/></span></td>
      <td class="value"><xsl:apply-templates select="$clip/format"/></td>
      <td class="number">
        <xsl:call-template name="duration">
          <xsl:with-param name="seconds" select="$clip/range/@start"/>
        </xsl:call-template>
      </td>
      <td class="number">
        <xsl:call-template name="duration">
          <xsl:with-param name="seconds" select="$clip/range/@length"/>
        </xsl:call-template>
      </td>
      <td class="value">
        <xsl:value-of select="$clip/transition/@kind"/>
        <xsl:if test="$clip/transition/@length">
          <xsl:text> </xsl:text>
          <xsl:call-template name="duration">
            <xsl:with-param name="seconds" select="$clip/transition/@length"/>
          </xsl:call-template>
        </xsl:if>
      </td>
      <td class="number">
        <xsl:call-template name="size">
          <xsl:with-param name="bytes" select="$source/@size"/>
        </xsl:call-template>
      </td>
    </tr>
  </xsl:template>

  <xsl:template match="format">
    <xsl:variable name="text">
      <xsl:value-of select="@encoding"/>
      <xsl:if test="@width and @height">
        <xsl:value-of select="concat(' ', @width, ' &#215; ', @height)"/>
      </xsl:if>
      <xsl:if test="@rate and @kind = 'film'">
        <xsl:value-of select="concat(' ', format-number(@rate div 1000, '0.###'), ' fps')"/>
      </xsl:if>
      <xsl:if test="@rate and @kind != 'film'">
        <xsl:value-of select="concat(' ', format-number(@rate div 1000, '0.###'), ' kHz')"/>
      </xsl:if>
      <xsl:choose>
        <xsl:when test="@channels = 1"> mono</xsl:when>
        <xsl:when test="@channels = 2"> stereo</xsl:when>
        <xsl:when test="@channels"><xsl:value-of select="concat(' ', @channels, ' channels')"/></xsl:when>
      </xsl:choose>
    </xsl:variable>
    <xsl:choose>
      <xsl:when test="string($text)"><xsl:value-of select="$text"/></xsl:when>
      <xsl:otherwise>&#8211;</xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <xsl:template match="sources">
    <section id="sources">
      <h2>
        <xsl:text>Sources </xsl:text>
        <small>
          <xsl:call-template name="counted">
            <xsl:with-param name="count" select="count(source)"/>
            <xsl:with-param name="noun" select="'file'"/>
          </xsl:call-template>
        </small>
      </h2>
      <div class="wide">
        <table>
          <thead>
            <tr>
              <th>Path</th>
              <th class="number">Size</th>
              <th>Modified</th>
              <th>MD5</th>
            </tr>
          </thead>
          <tbody>
            <xsl:for-each select="source">
              <tr id="{@id}">
                <td class="path"><xsl:value-of select="@path"/></td>
                <td class="number">
                  <xsl:call-template name="size">
                    <xsl:with-param name="bytes" select="@size"/>
                  </xsl:call-template>
                </td>
                <td class="time">
                  <xsl:choose>
                    <xsl:when test="@modified">
                      <xsl:value-of select="translate(substring-before(@modified, '.'), 'T', ' ')"/>
                    </xsl:when>
                    <xsl:otherwise>&#8211;</xsl:otherwise>
                  </xsl:choose>
                </td>
                <td class="sum"><xsl:value-of select="@md5"/></td>
              </tr>
            </xsl:for-each>
          </tbody>
        </table>
      </div>
    </section>
  </xsl:template>

  <xsl:template name="title">
    <xsl:choose>
      <xsl:when test="string(/storyboard/@title)"><xsl:value-of select="/storyboard/@title"/></xsl:when>
      <xsl:otherwise>Untitled</xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <xsl:template name="binName">
    <xsl:choose>
      <xsl:when test="@kind = 'folder' and @name = '.'">The folder itself</xsl:when>
      <xsl:when test="@name = ''">(no name)</xsl:when>
      <xsl:otherwise><xsl:value-of select="@name"/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <xsl:template name="total">
    <xsl:param name="count"/>
    <xsl:param name="noun"/>
    <li>
      <b><xsl:value-of select="format-number($count, '#,##0')"/></b>
      <span>
        <xsl:value-of select="$noun"/>
        <xsl:if test="$count != 1">s</xsl:if>
      </span>
    </li>
  </xsl:template>

  <xsl:template name="counted">
    <xsl:param name="count"/>
    <xsl:param name="noun"/>
    <xsl:value-of select="concat(format-number($count, '#,##0'), ' ', $noun)"/>
    <xsl:if test="$count != 1">s</xsl:if>
  </xsl:template>

  <xsl:template name="size">
    <xsl:param name="bytes"/>
    <xsl:choose>
      <xsl:when test="$bytes &lt; 1024"><xsl:value-of select="$bytes"/> B</xsl:when>
      <xsl:when test="$bytes &lt; 1048576"><xsl:value-of select="format-number($bytes div 1024, '0.0')"/> KiB</xsl:when>
      <xsl:when test="$bytes &lt; 1073741824">
        <xsl:value-of select="format-number($bytes div 1048576, '0.0')"/>
        <xsl:text> MiB</xsl:text>
      </xsl:when>
      <xsl:otherwise>
        <xsl:value-of select="format-number($bytes div 1073741824, '#,##0.0')"/>
        <xsl:text> GiB</xsl:text>
      </xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- "0:05.0", "1:02:03.5", a dash if it is not known -->
  <xsl:template name="duration">
    <xsl:param name="seconds"/>
    <xsl:choose>
      <xsl:when test="not(string($seconds))">&#8211;</xsl:when>
      <xsl:otherwise>
        <xsl:variable name="tenths" select="floor($seconds * 10)"/>
        <xsl:variable name="hours" select="floor($tenths div 36000)"/>
        <xsl:variable name="minutes" select="floor($tenths div 600) mod 60"/>
        <xsl:if test="$hours != 0">
          <xsl:value-of select="concat(format-number($hours, '0'), ':')"/>
        </xsl:if>
        <xsl:choose>
          <xsl:when test="$hours != 0"><xsl:value-of select="format-number($minutes, '00')"/></xsl:when>
          <xsl:otherwise><xsl:value-of select="$minutes"/></xsl:otherwise>
        </xsl:choose>
        <xsl:value-of select="concat(':', format-number($tenths mod 600 div 10, '00.0'))"/>
      </xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <!-- Without the characters that XML would have as references, which a browser does not read in a style. -->
  <xsl:template name="style">
    <xsl:text>
:root { color-scheme: light dark; --back: #f6f5f2; --card: #ffffff; --text: #24262b; --dim: #70737c; --line: #e3e1db;
  --picture: #3f7fbf; --film: #b4543a; --sound: #3d8f66; --text-kind: #8a6bb5; --other: #8b8d94; }
@media (prefers-color-scheme: dark) { :root { --back: #17181b; --card: #212328; --text: #e8e6e1; --dim: #9a9ca5;
  --line: #34363d; --picture: #6ba6e0; --film: #e08266; --sound: #69bd92; --text-kind: #b497dc; --other: #a0a2aa; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--back); color: var(--text); font: 15px/1.5 system-ui, "Segoe UI", sans-serif; }
header, main, footer { max-width: 72rem; margin: 0 auto; padding: 0 1.5rem; }
header { padding-top: 2.5rem; }
.kicker { margin: 0; color: var(--dim); font-size: .8rem; letter-spacing: .14em; text-transform: uppercase; }
h1 { margin: .1em 0 .5em; font-size: 2.2rem; line-height: 1.2; overflow-wrap: anywhere; }
h2 { margin: 0 0 .8rem; font-size: 1.15rem; overflow-wrap: anywhere; }
small { color: var(--dim); font-weight: normal; font-size: .85em; }
a { color: inherit; text-decoration-color: var(--dim); text-underline-offset: .2em; }
.totals { display: flex; flex-wrap: wrap; gap: .6rem 2.2rem; margin: 0; padding: 0; list-style: none; }
.totals b { display: block; font-size: 1.35rem; line-height: 1.2; font-variant-numeric: tabular-nums; }
.totals span { color: var(--dim); font-size: .85rem; }
nav { display: flex; flex-wrap: wrap; gap: .5rem; margin-top: 1.5rem; }
nav a { padding: .2rem .8rem; border: 1px solid var(--line); border-radius: 1rem; background: var(--card);
  font-size: .85rem; text-decoration: none; overflow-wrap: anywhere; }
section { margin: 1.5rem 0; padding: 1.2rem 1.4rem; border: 1px solid var(--line); border-radius: .7rem;
  background: var(--card); }
.binKind { margin-right: .7rem; padding: .1rem .5rem; border-radius: .3rem; background: var(--line);
  font-size: .7rem; font-weight: normal; letter-spacing: .06em; text-transform: uppercase; vertical-align: .12em; }
.timeline { display: flex; gap: 2px; height: 1.6rem; margin-bottom: 1rem; overflow: hidden; border-radius: .3rem; }
.timeline span { flex-basis: 0; min-width: 2px; overflow: hidden; background: var(--other); }
.timeline .picture { background: var(--picture); } .timeline .film { background: var(--film); }
.timeline .sound { background: var(--sound); } .timeline .text { background: var(--text-kind); }
.wide { overflow-x: auto; }
table { width: 100%; border-collapse: collapse; font-size: .9rem; }
th { padding: .3rem .7rem; color: var(--dim); font-size: .75rem; font-weight: 600; text-align: left; }
td { padding: .4rem .7rem; border-top: 1px solid var(--line); vertical-align: top; }
th.number, td.number { text-align: right; white-space: nowrap; font-variant-numeric: tabular-nums; }
.path { min-width: 12rem; overflow-wrap: anywhere; } .path small { display: block; }
.value { white-space: nowrap; }
.time { white-space: nowrap; font-variant-numeric: tabular-nums; }
.sum { color: var(--dim); font: .8rem ui-monospace, Consolas, monospace; }
.kind { font-size: .85rem; color: var(--other); white-space: nowrap; }
.kind::before { content: "\25CF\00A0"; }
.kind.picture { color: var(--picture); } .kind.film { color: var(--film); }
.kind.sound { color: var(--sound); } .kind.text { color: var(--text-kind); }
.none { margin: 0; color: var(--dim); }
tr:target td { background: var(--line); }
footer { padding-bottom: 2.5rem; color: var(--dim); font-size: .8rem; }
@media print { body { background: none; } nav { display: none; } section { break-inside: avoid; } }
</xsl:text>
  </xsl:template>

</xsl:stylesheet>
